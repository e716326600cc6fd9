import { execFileSync } from "node:child_process";
import { describe, expect, it } from "vitest";
import { meanDay } from "../../src/charts";
import { csvField, dayText, hourOfYearText, numberText } from "../../src/format";
import { areaWithin, histogram, sumsBy } from "../../src/histogram";
import { type Cells, Column } from "../../src/packing";
import { differenceOf } from "../../src/difference";
import { comparable, sameCells, sharedColumns } from "../../src/shared";
import { directionOf, SunPath } from "../../src/sun";
import { command, folder, resultOf } from "../pages";

const cells = { count: 5, area: Float32Array.of(1, 2, 4, 8, 16), hasAreas: true } as Cells;
const columnOf = (levels: number[], step = 0.5, offset = 2, decimals = 1): Column =>
  new Column("total", "Total", "kWh/m2", step, offset, decimals, Uint16Array.from(levels));
// 1.0, 1.5, no value, 6.0, 3.5
const column = columnOf([0, 1, 0xffff, 10, 5]);

describe("sums", () => {
  it("weigh by area and leave out what has no value", () => {
    const [all] = sumsBy(cells, column, null, 1);
    expect(all).toMatchObject({ cells: 4, area: 27, lowest: 1, highest: 6 });
    expect(all.mean).toBeCloseTo((1 + 3 + 48 + 56) / 27);
    const groups = sumsBy(cells, column, [0, 1, 1, 1, 0], 3);
    expect(groups.map((group) => group.area)).toEqual([17, 10, 0]);
    expect(groups[2].mean).toBeNaN();
  });
  it("fill a histogram to its ends and no further", () => {
    const all = histogram(cells, column, 1, 6, 5, null);
    expect([...all.areas]).toEqual([3, 0, 16, 0, 8]);
    const some = histogram(cells, column, 2, 4, 2, Uint8Array.of(1, 0, 1, 1, 1));
    expect([...some.areas]).toEqual([1, 24]); // beyond the ends: the outermost
    expect([...histogram(cells, column, 3, 3, 2, null).areas]).toEqual([27, 0]);
  });
  it("count what lies within a filter, ends included", () => {
    expect(areaWithin(cells, column, 1.5, 3.5, null)).toEqual({ area: 18, cells: 2 });
    expect(areaWithin(cells, column, 4, Infinity, null)).toEqual({ area: 8, cells: 1 });
  });
});

describe("differences", () => {
  it("are the second less the first, none where either has none", () => {
    const other = columnOf([10, 0, 3, 0xffff, 5], 0.1, 0, 1); // 1.0, 0.0, 0.3, none, 0.5
    const difference = differenceOf(column, other);
    expect([0, 1, 2, 3, 4].map((i) => difference.at(i))).toEqual([0, -1.5, NaN, NaN, -3]);
  });
});

describe("several results", () => {
  it("are of the same cells whatever stands around them, and share what both have", () => {
    const demo = resultOf(`${folder}/courtyard/page.html`);
    const [, tower, noon] = [0, 1, 2].map((number) => resultOf(`${folder}/designs.html`, number));
    expect(tower.record.step).toBe(100 * demo.record.step); // its scene is 3 km long
    expect([tower, noon].map((other) => sameCells(demo, other))).toEqual([true, true]);
    const moved = resultOf(`${folder}/designs.html`, 1);
    moved.centre[1] += 0.1;
    expect(sameCells(demo, moved)).toBe(false);
    expect(sameCells(demo, resultOf(`${folder}/plane/page.html`))).toBe(false);
    expect(sharedColumns([demo, tower]).map(({ name }) => name)).toContain("peak");
    expect(sharedColumns([demo, tower]).map(({ name }) => name)).not.toContain("peak_hour");
    expect(comparable([demo, noon, tower, demo, demo, demo], 4)).toEqual([0, 2, 3, 4]);
  });
});

describe("the mean day", () => {
  it("is that of the period's days alone", () => {
    const hours = new Float32Array(8760);
    for (const day of [171, 172, 173]) {
      hours.set([300, 450], 24 * day + 11);
    }
    hours[24 * 171 + 11] = 0; // a dark hour counts
    const mean = meanDay(hours, 3);
    expect([mean[10], mean[11], mean[12]]).toEqual([0, 200, 450]);
    const days = ["courtyard", "plane"].map((name) => resultOf(`${folder}/${name}/page.html`).record.days);
    expect(days).toEqual([365, 1]);
  });
});

describe("texts", () => {
  it("name days and hours as summaries do", () => {
    expect([1, 59, 60, 365].map((day) => dayText(day))).toEqual(["1 January", "28 February", "1 March", "31 December"]);
    expect(hourOfYearText(12)).toBe("1 January, 11:00 to 12:00");
    expect(hourOfYearText(4285)).toBe("28 June, 12:00 to 13:00");
  });
  it("write numbers with four digits", () => {
    expect([1234567.8, 827.94, 0.05536, 0, -3.5, NaN].map((v) => numberText(v))).toEqual([
      "1,234,568", "827.9", "0.05536", "0", "−3.500", "–",
    ]);
  });
  it("keep spreadsheets from running names", () => {
    expect(csvField("=cmd|' /C calc'!A0")).toBe("'=cmd|' /C calc'!A0");
    expect(csvField('a,"b"')).toBe('"a,""b"""');
    expect(csvField("-2+3+cmd|' /C calc'!A0")).toBe("'-2+3+cmd|' /C calc'!A0");
  });
});

describe("the sun", () => {
  const result = resultOf(`${folder}/courtyard/page.html`);
  const path = new SunPath(result.record.site!, result.floats("sunDeclination"), result.floats("sunEquation"));
  it("stands where `insolate sun` has it", () => {
    let compared = 0;
    for (const [date, day] of [["1/1", 1], ["3/20", 79], ["6/21", 172], ["12/31", 365]] as const) {
      const text = execFileSync(command, ["sun", "--lat", "47", "--lon", "8", "--tz", "1", "--date", date], { encoding: "utf8" });
      for (const [, hour, minute, altitude, azimuth] of text.matchAll(/^ +(\d+):(\d+) +(\S+) +(\S+)/gm)) {
        const sun = path.at(day, 60 * Number(hour) + Number(minute));
        // Years differ by some hundredths of a degree; near the horizon the air is the page's own.
        expect(Math.abs(sun.altitude - Number(altitude)), `${date} ${hour}:${minute}`).toBeLessThan(0.1);
        expect(Math.abs(sun.azimuth - Number(azimuth)), `${date} ${hour}:${minute}`).toBeLessThan(0.1);
        ++compared;
      }
    }
    expect(compared).toBeGreaterThan(40);
    const rise = path.times(172)!;
    expect(Math.abs(rise.rise - (4 * 60 + 33))).toBeLessThan(1.5); // of the same table
    expect(Math.abs(rise.set - (20 * 60 + 27))).toBeLessThan(1.5);
  });
  it("is turned into the model's axes", () => {
    const south = directionOf({ azimuth: 180, altitude: 0 }, 0);
    expect(south[0]).toBeCloseTo(0);
    expect(south[1]).toBeCloseTo(-1);
    const turned = directionOf({ azimuth: 0, altitude: 30 }, 90); // +X is north
    expect(turned[0]).toBeCloseTo(Math.cos(Math.PI / 6));
    expect(turned[2]).toBeCloseTo(0.5);
  });
});
