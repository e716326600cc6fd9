import { existsSync } from "node:fs";
import { describe, expect, it } from "vitest";
import { cornersOf, normalOf, NumberReader, sideOf, sides } from "../../src/packing";
import { folder, resultOf, tableOf } from "../pages";

describe("numbers", () => {
  it("are read as they are written", () => {
    const reader = new NumberReader(Uint8Array.of(0, 1, 2, 0x7f, 0x80, 0x01, 0xff, 0xff, 0xff, 0xff, 0x1f));
    expect([reader.difference(), reader.difference(), reader.difference()]).toEqual([0, -1, 1]);
    expect(reader.difference()).toBe(-64);
    expect(reader.number()).toBe(128);
    expect(reader.number()).toBe(2 ** 33 - 1);
    expect(reader.done).toBe(true);
    expect(() => reader.number()).toThrow("too early");
  });
});

describe("sides", () => {
  it("are those of --facing, by true north", () => {
    const cases: [number, number, number, number, string][] = [
      [0, 0, 1, 0, "up"],
      [0, 0.86, 0.51, 0, "up"],
      [0, 0.87, 0.49, 0, "north"],
      [1, 0.9, 0, 0, "east"],
      [1, 1.1, 0, 0, "north"],
      [0, -1, 0.2, 0, "south"],
      [-1, 0, 0, 0, "west"],
      [0, 0.5, -0.9, 0, "down"],
      [0, 1, 0, 90, "west"], // +X is north
      [0, 0, 0, 0, "none"],
    ];
    for (const [x, y, z, north, side] of cases) {
      expect(sides[sideOf(x, y, z, north)], `${x} ${y} ${z}`).toBe(side);
    }
  });
});

/// The demo has grids and triangles, Lyon's ground triangles alone, the plane gaps where houses stand.
const names = ["courtyard", "lyon", "plane", "points"].filter((name) => existsSync(`${folder}/${name}`));
describe.each(names)("the page of %s", (name) => {
  const result = resultOf(`${folder}/${name}/page.html`);
  const table = tableOf(`${folder}/${name}/sensors.csv`);

  it("has every cell where the table has it", () => {
    expect(result.cells.count).toBe(table.rows);
    const [x, y, z] = ["x", "y", "z"].map((axis) => table.column(axis));
    const [nx, ny, nz] = ["nx", "ny", "nz"].map((axis) => table.column(axis));
    const { origin, step } = result.record;
    const areas = result.cells.hasAreas ? table.column("area") : null;
    for (let i = 0; i < table.rows; i += 7) {
      const corners = cornersOf(result.cells, i);
      const normal = normalOf(corners);
      if (areas && areas[i] < 1e-3) {
        continue; // no larger than the steps of its corners
      }
      expect(normal[0] * nx[i] + normal[1] * ny[i] + normal[2] * nz[i]).toBeGreaterThan(0.99);
      const middle = [0, 1, 2].map(
        (k) => origin[k] + corners.reduce((sum, corner) => sum + corner[k], 0) / corners.length,
      );
      // Sensors stand up to 5 cm before their cells.
      const away = Math.hypot(x[i] - middle[0], y[i] - middle[1], z[i] - middle[2]);
      expect(away, `cell ${i}`).toBeLessThan(0.0501 + 2 * step);
      if (areas) {
        // Half a step of each corner, along the outline of a cell that is longer than it is wide.
        const outline = corners.reduce((sum, corner, k) => {
          const next = corners[(k + 1) % corners.length];
          return sum + Math.hypot(corner[0] - next[0], corner[1] - next[1], corner[2] - next[2]);
        }, 0);
        expect(Math.abs(result.cells.area[i] - areas[i])).toBeLessThan(outline * step + 1e-5 * areas[i]);
      }
    }
  });

  it("has every value to the digits that it shows, of enclosed cells none", () => {
    const enclosed = table.column("enclosed");
    expect([...(result.enclosed ?? new Uint8Array(table.rows))]).toEqual([...enclosed]);
    for (const record of result.record.columns) {
      const column = result.columnNamed(record.name)!;
      const factor = record.unit === "kWh/m2" ? 1e-3 : 1;
      const values = table.column(record.name);
      let worst = 0;
      for (let i = 0; i < table.rows; ++i) {
        if (enclosed[i] === 1) {
          expect(column.at(i)).toBeNaN();
          continue;
        }
        worst = Math.max(worst, Math.abs(column.at(i) - values[i] * factor) / column.step);
      }
      expect(worst, record.name).toBeLessThan(0.5001);
    }
  });

  it("sums to what the table sums to", () => {
    if (result.cells.hasAreas) {
      const areas = table.column("area");
      const whole = areas.reduce((sum, area) => sum + area, 0);
      const own = result.cells.area.reduce((sum, area) => sum + area, 0);
      expect(own / whole).toBeCloseTo(1, 3);
    }
  });
});

describe("names", () => {
  it("belong to the cells that the table gives them", () => {
    const result = resultOf(`${folder}/courtyard/page.html`);
    const area = new Map<string, number>();
    for (let i = 0; i < result.cells.count; ++i) {
      const name = result.name(result.cells.object[i]);
      area.set(name, (area.get(name) ?? 0) + result.cells.area[i]);
      expect(result.name(result.cells.material[i])).toBe("surface");
    }
    expect(area.get("court")).toBeCloseTo(26 * 18, 0); // of make_model.py
    expect(area.get("ground")).toBeGreaterThan(4000);
    expect(area.has("tree")).toBe(false);
  });
  it("of the surroundings go with the cells on them", () => {
    const { scene } = resultOf(`${folder}/courtyard/page.html`);
    expect(scene.pairs.length).toBeGreaterThan(10);
    const owned = scene.triangleObject.filter((pair) => pair > 0).length;
    expect(owned).toBeGreaterThan(20); // all of the house and the ground
    expect(owned).toBeLessThan(0.2 * scene.triangleObject.length); // trees are most triangles
  });
});
