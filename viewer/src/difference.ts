/// Two results of the same cells.
import { Column } from "./packing";

/// The second less the first.
export function differenceOf(first: Column, second: Column): Column {
  const step = Math.max(first.step, second.step);
  const count = first.levels.length;
  const values = new Float64Array(count);
  let lowest = Infinity;
  let highest = -Infinity;
  for (let i = 0; i < count; ++i) {
    values[i] = second.at(i) - first.at(i);
    if (Number.isFinite(values[i])) {
      lowest = Math.min(lowest, values[i]);
      highest = Math.max(highest, values[i]);
    }
  }
  let fine = step;
  while ((highest - lowest) / fine > 65000) {
    fine *= 10;
  }
  const offset = Number.isFinite(lowest) ? Math.round(lowest / fine) : 0;
  const levels = new Uint16Array(count);
  for (let i = 0; i < count; ++i) {
    levels[i] = Number.isFinite(values[i]) ? Math.round(values[i] / fine) - offset : 0xffff;
  }
  const decimals = Math.min(first.decimals, second.decimals) - Math.round(Math.log10(fine / step));
  return new Column(first.name, `${first.title}, difference`, first.unit, fine, offset, decimals, levels, true);
}
