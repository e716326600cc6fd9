/// The two Perez models written down from the papers, without regard to speed, for comparison.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace insolate::test {

inline constexpr double degree = M_PI / 180.0;

/// The bin 0..7 of a clearness that lies on none of the bounds.
inline std::size_t clearnessBin(double clearness) {
    std::size_t bin = 0;
    for (const double bound : {1.065, 1.23, 1.5, 1.95, 2.8, 4.5, 6.2}) {
        bin += clearness > bound ? 1 : 0;
    }
    return bin;
}

/// Perez, Seals and Michalsky (1993), Solar Energy 50(3), eq. 1 and 6 to 8, table 1.
struct PlainLuminance {
    double a, b, c, d, e;

    PlainLuminance(double clearness, double brightness, double zenith) {
        constexpr double table[8][20] = {
            {1.3525, -0.2576, -0.269, -1.4366, -0.767, 0.0007, 1.2734, -0.1233, 2.8,     0.6004,
             1.2375, 1,       1.8734, 0.6297,  0.9738, 0.2809, 0.0356, -0.1246, -0.5718, 0.9938},
            {-1.2219, -0.773,  1.4148,  1.1016,  -0.2054, 0.0367, -3.9128, 0.9156, 6.975,  0.1774,
             6.4477,  -0.1239, -1.5798, -0.5081, -1.7812, 0.108,  0.2624,  0.0672, -0.219, -0.4285},
            {-1.1,  -0.2515, 0.8952, 0.0156, 0.2782, -0.1812, -4.5,    1.1766, 24.7219, -13.0812,
             -37.7, 34.8438, -5,     1.5218, 3.9229, -2.6204, -0.0156, 0.1597, 0.4199,  -0.5562},
            {-0.5484, -0.6654, -0.2672, 0.7117,  0.7234,  -0.6219, -5.6812,
             2.6297,  33.3389, -18.3,   -62.25,  52.0781, -3.5,    0.0016,
             1.1477,  0.1062,  0.4659,  -0.3296, -0.0876, -0.0329},
            {-0.6,     -0.3566, -2.5, 2.325,   0.2937, 0.0496, -5.6812, 1.8415, 21,      -4.7656,
             -21.5906, 7.2492,  -3.5, -0.1554, 1.4062, 0.3988, 0.0032,  0.0766, -0.0656, -0.1294},
            {-1.0156, -0.367, 1.0078, 1.4051,  0.2875, -0.5328, -3.85,   3.375,  14,     -0.9999,
             -7.1406, 7.5469, -3.4,   -0.1078, -1.075, 1.5702,  -0.0672, 0.4016, 0.3017, -0.4844},
            {-1,     0.0211,  0.5025, -0.5119, -0.3,   0.1922, 0.7023, -1.6317, 19,      -5,
             1.2438, -1.9094, -4,     0.025,   0.3844, 0.2656, 1.0468, -0.3788, -2.4517, 1.4656},
            {-1.05,    0.0289, 0.426,   0.359, -0.325, 0.1156, 0.7781, 0.0025,  31.0625, -14.5,
             -46.1148, 55.375, -7.2312, 0.405, 13.35,  0.6234, 1.5,    -0.6426, 1.8564,  0.5636}};
        const std::size_t bin = clearnessBin(clearness);
        const double(&t)[20] = table[bin];
        const auto linear = [&](int i) {
            return t[i] + t[i + 1] * zenith + brightness * (t[i + 2] + t[i + 3] * zenith);
        };
        a = linear(0);
        b = linear(4);
        c = linear(8);
        d = linear(12);
        e = linear(16);
        if (bin == 0) {
            c = std::exp(std::pow(brightness * (t[8] + t[9] * zenith), t[10])) - t[11];
            d = -std::exp(brightness * (t[12] + t[13] * zenith)) + t[14] + brightness * t[15];
        }
    }
};

/// The sky of a time step: clearness and brightness with the zenith angle held to 3 degrees, air
/// mass of Kasten (1966), sun-earth distance of Spencer (1971).
struct PlainStep {
    double altitude, zenith, diffuse, clearness, brightness;

    PlainStep(int day, double sunAltitude, double diffuseHorizontal, double direct)
        : altitude(std::min(sunAltitude, 87.0 * degree)), zenith(M_PI / 2.0 - altitude),
          diffuse(diffuseHorizontal) {
        const double x = 2.0 * M_PI * (day - 1) / 365.0;
        const double eccentricity = 1.00011 + 0.034221 * std::cos(x) + 0.00128 * std::sin(x) +
                                    0.000719 * std::cos(2.0 * x) + 0.000077 * std::sin(2.0 * x);
        const double airMass =
            1.0 / (std::sin(altitude) + 0.15 * std::pow(altitude / degree + 3.885, -1.253));
        const double kappa = 1.041 * std::pow(zenith, 3);
        brightness = airMass * diffuse / (1367.0 * eccentricity);
        clearness = (1.0 + direct / diffuse + kappa) / (1.0 + kappa);
    }

    /// With the floor under the brightness of skies of middling clearness.
    PlainLuminance luminance() const {
        const bool middling = clearness > 1.065 && clearness < 2.8;
        return {clearness, middling ? std::max(brightness, 0.2) : brightness, zenith};
    }
};

/// Perez et al. (1990), Solar Energy 44(5), eq. 6 and 9, table 6: a plane under a sky of which it
/// sees a share. Beyond a zenith angle of 87.5 degrees the sky is isotropic while the sun reaches
/// the plane, and otherwise counts by the horizon factor.
struct PlainTilted {
    double isotropic = 0, circumsolar = 0, horizon = 0, ground = 0, beam = 0;

    PlainTilted(double direct, double diffuse, double zenith, double cosineIncidence, double tilt,
                double skyView, double sunVisibility, double horizonFactor) {
        constexpr double table[8][6] = {
            {-0.0083117, 0.5877285, -0.0620636, -0.0596012, 0.0721249, -0.0220216},
            {0.1299457, 0.6825954, -0.1513752, -0.0189325, 0.065965, -0.0288748},
            {0.3296958, 0.4868735, -0.2210958, 0.055414, -0.0639588, -0.0260542},
            {0.5682053, 0.1874525, -0.295129, 0.1088631, -0.1519229, -0.0139754},
            {0.873028, -0.3920403, -0.3616149, 0.2255647, -0.4620442, 0.0012448},
            {1.1326077, -1.2367284, -0.4118494, 0.2877813, -0.8230357, 0.0558651},
            {1.0601591, -1.5999137, -0.3589221, 0.2642124, -1.127234, 0.1310694},
            {0.677747, -0.3272588, -0.2504286, 0.1561313, -1.3765031, 0.2506212}};
        ground = (1.0 - std::cos(tilt)) / 2.0 * 0.2 * (direct * std::cos(zenith) + diffuse);
        const double reach = std::max(cosineIncidence, 0.0) * sunVisibility;
        beam = direct * reach;
        if (zenith > 87.5 * degree) {
            isotropic = cosineIncidence > 0.0 ? diffuse * skyView : 0.0;
            horizon = cosineIncidence > 0.0
                          ? 0.0
                          : diffuse * horizonFactor * (1.0 + std::cos(tilt)) / 2.0;
            return;
        }
        if (diffuse > 0.0) {
            const double degrees = zenith / degree;
            const double airMass =
                1.0 / (std::cos(zenith) + 0.15 * std::pow(93.9 - degrees, -1.253));
            const double kappa = 5.534e-6 * std::pow(degrees, 3);
            const double brightness = airMass * diffuse / 1367.0;
            const double clearness = (1.0 + direct / diffuse + kappa) / (1.0 + kappa);
            const double(&f)[6] = table[clearnessBin(clearness)];
            const double F1 = f[0] + f[1] * brightness + f[2] * zenith;
            const double F2 = f[3] + f[4] * brightness + f[5] * zenith;
            isotropic = diffuse * (1.0 - F1) * skyView;
            circumsolar = std::max(
                diffuse * F1 * reach / std::max(std::cos(zenith), std::cos(85.0 * degree)), 0.0);
            horizon = std::max(diffuse * F2 * std::sin(tilt) * horizonFactor, 0.0);
        }
    }

    double diffuse() const { return isotropic + circumsolar + horizon + ground; }
};

} // namespace insolate::test
