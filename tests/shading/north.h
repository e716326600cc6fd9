/// The shared site's north offset, set for a test and restored after it.
#pragma once

#include <insolate/solar/solar_position.h>

namespace insolate::test {

class NorthOffset {
public:
    explicit NorthOffset(double offset) : before(ESolarPosition::Global.getNorthOffset()) {
        ESolarPosition::Global.setNorthOffset(offset);
    }
    ~NorthOffset() { ESolarPosition::Global.setNorthOffset(before); }
    NorthOffset(const NorthOffset&) = delete;
    NorthOffset& operator=(const NorthOffset&) = delete;

private:
    double before;
};

} // namespace insolate::test
