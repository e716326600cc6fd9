/// How radiation is calculated, and which of a point's three results is meant.
#pragma once

enum CalculationMethod : int {
    /// Cumulative sky with the diffuse light of an overcast sky; points integrate sky and mask.
    CalculationMethod_CumulativeSky = 0,
    /// Cumulative sky with diffuse light by the all-weather sky of Perez, Seals and Michalsky
    /// (1993);
    /// points integrate sky and mask.
    CalculationMethod_PerezSky = 1,
    /// Points integrate the tilted-surface model of Perez et al. (1990) step by step over the
    /// period.
    CalculationMethod_PerezPoint = 2,
};

enum ResultAccumulator : int {
    ResultAccumulator_Total = 0,   ///< over the period [Wh/m2]
    ResultAccumulator_Average = 1, ///< per counted hour of the period [W/m2]
    ResultAccumulator_Peak = 2,    ///< highest value [W/m2]
};
