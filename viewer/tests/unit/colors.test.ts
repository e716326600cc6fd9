import { describe, expect, it } from "vitest";
import { colorAt, colorTable, placeOf, roundStep, ticks } from "../../src/colors";
import expected from "../colors.json";

describe("colours", () => {
  it.each(["sequential", "diverging"] as const)("of the %s map are those of the pictures", (scheme) => {
    const table = colorTable(scheme);
    for (const [place, red, green, blue] of expected[scheme]) {
      expect(colorAt(place, table)).toEqual([red, green, blue]);
    }
  });
  it("go in steps whose ends are the ends of the map", () => {
    const scale = { lowest: 0, highest: 10, steps: 5, scheme: "sequential" as const };
    expect([-1, 0, 1.9, 2, 9.9, 10, 11].map((value) => placeOf(value, scale))).toEqual([0, 0, 0, 0.25, 1, 1, 1]);
    expect(placeOf(2.5, { ...scale, steps: 0 })).toBe(0.25);
  });
  it("are numbered roundly", () => {
    expect(ticks(108.3, 1414.5, 6)).toEqual([250, 500, 750, 1000, 1250]);
    expect(roundStep(1, 4)).toBeCloseTo(0.25);
    expect(ticks(1, 1, 5)).toEqual([]);
  });
});
