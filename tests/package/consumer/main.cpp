// A foreign host in a few lines: the sun must stand where the default site says.
#include <insolate/insolate.h>

#include <cmath>
#include <cstdio>

int main() {
    ESolarPosition& sun = ESolarPosition::Global;
    sun.setLocalTime(12.0);
    EModel model;
    std::printf("insolate %s: %.2f degrees high at noon\n", INSOLATE_VERSION,
                sun.getSolarAltitudeInDegrees());
    return model.getJobSize() == 0 && std::fabs(sun.getSolarAltitudeInDegrees() - 56.6) < 0.5 ? 0
                                                                                              : 1;
}
