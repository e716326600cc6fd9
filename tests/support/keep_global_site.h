/// Puts the shared site back as it was when the test ends.
#pragma once

#include <insolate/solar/solar_position.h>

namespace insolate::test {

class KeepGlobalSite {
public:
    KeepGlobalSite() : kept(ESolarPosition::Global) {}
    /// Turns the shared site's north [radians] meanwhile.
    explicit KeepGlobalSite(double northOffset) : KeepGlobalSite() {
        ESolarPosition::Global.setNorthOffset(northOffset);
    }
    ~KeepGlobalSite() { ESolarPosition::Global = kept; }
    KeepGlobalSite(const KeepGlobalSite&) = delete;
    KeepGlobalSite& operator=(const KeepGlobalSite&) = delete;

private:
    ESolarPosition kept;
};

} // namespace insolate::test
