/// Sums over cells, weighted by their areas.
import type { Cells, Column } from "./packing";

export interface Histogram {
  lowest: number;
  highest: number;
  /// Area of the cells in each of equal steps between the ends.
  areas: Float64Array;
}

/// @param shown by sensor, 1 counts; null: all
export function histogram(
  cells: Cells,
  column: Column,
  lowest: number,
  highest: number,
  bins: number,
  shown: Uint8Array | null,
): Histogram {
  const areas = new Float64Array(bins);
  const scale = highest > lowest ? bins / (highest - lowest) : 0;
  for (let i = 0; i < cells.count; ++i) {
    if (column.levels[i] === column.missing || (shown && shown[i] === 0)) {
      continue;
    }
    const bin = Math.floor((column.at(i) - lowest) * scale);
    areas[Math.min(Math.max(bin, 0), bins - 1)] += cells.area[i];
  }
  return { lowest, highest, areas };
}

export interface Sums {
  cells: number;
  area: number;
  lowest: number;
  highest: number;
  mean: number;
  /// Value times area.
  whole: number;
}

export function emptySums(): Sums {
  return { cells: 0, area: 0, lowest: Infinity, highest: -Infinity, mean: NaN, whole: 0 };
}

function add(sums: Sums, value: number, area: number): void {
  sums.cells += 1;
  sums.area += area;
  sums.lowest = Math.min(sums.lowest, value);
  sums.highest = Math.max(sums.highest, value);
  sums.whole += value * area;
}

/// @param groupOf number of the sensor's group, below `groups`; null: all are one group
export function sumsBy(
  cells: Cells,
  column: Column,
  groupOf: ArrayLike<number> | null,
  groups: number,
  shown: Uint8Array | null = null,
): Sums[] {
  const list = Array.from({ length: groups }, emptySums);
  for (let i = 0; i < cells.count; ++i) {
    if (column.levels[i] !== column.missing && (!shown || shown[i] === 1)) {
      add(list[groupOf ? groupOf[i] : 0], column.at(i), cells.area[i]);
    }
  }
  for (const sums of list) {
    sums.mean = sums.area > 0 ? sums.whole / sums.area : NaN;
  }
  return list;
}

/// Area and number of cells whose value lies within the ends, both included.
export function areaWithin(
  cells: Cells,
  column: Column,
  from: number,
  to: number,
  shown: Uint8Array | null,
): { area: number; cells: number } {
  let area = 0;
  let count = 0;
  for (let i = 0; i < cells.count; ++i) {
    if (column.levels[i] === column.missing || (shown && shown[i] === 0)) {
      continue;
    }
    const value = column.at(i);
    if (value >= from && value <= to) {
      area += cells.area[i];
      ++count;
    }
  }
  return { area, cells: count };
}
