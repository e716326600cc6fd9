#include <insolate/insolate.h>

int main() {
    return 0;
}
