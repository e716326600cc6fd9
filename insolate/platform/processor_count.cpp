#include <insolate/platform/processor_count.h>

#include <algorithm>
#include <thread>

namespace insolate {

int processorCount() {
    static const int count = std::max(1, static_cast<int>(std::thread::hardware_concurrency()));
    return count;
}

} // namespace insolate
