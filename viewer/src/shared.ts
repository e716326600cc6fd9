/// What several results have in common.
import { type ColumnRecord, cornersOf, type Result } from "./packing";

/// The columns that all of them have, as the first one has them. The hour of a peak is not one to look
/// at: it belongs to the peak.
export function sharedColumns(results: Result[]): ColumnRecord[] {
  const [first, ...others] = results;
  return first.record.columns.filter(
    (column) =>
      column.unit !== "hour of year" &&
      others.every((other) =>
        other.record.columns.some((own) => own.name === column.name && own.unit === column.unit),
      ),
  );
}

/// Whether all have the same parts of the period, by name.
export function shareSteps(results: Result[]): boolean {
  const names = (result: Result): string => result.record.steps.map((step) => step.name).join();
  return results.every((result) => names(result) === names(results[0]));
}

/// The first results, at most so many, that one scale of colours serves: they share a column.
export function comparable(results: Result[], most: number): number[] {
  const chosen: number[] = [];
  results.forEach((result, i) => {
    const together = [...chosen.map((number) => results[number]), result];
    if (chosen.length < most && sharedColumns(together).length > 0) {
      chosen.push(i);
    }
  });
  return chosen;
}

/// Whether two results are of the same cells. Their packed corners may differ: places are counted from
/// the corner of each scene, in steps that grow with it.
export function sameCells(a: Result, b: Result): boolean {
  if (a === b) {
    return true;
  }
  let answers = known.get(a);
  if (!answers) {
    answers = new WeakMap();
    known.set(a, answers);
  }
  let answer = answers.get(b);
  if (answer === undefined) {
    answer = haveSameCells(a, b);
    answers.set(b, answer);
  }
  return answer;
}

/// Answers of sameCells(), which is asked for each cell that is pointed at.
const known = new WeakMap<Result, WeakMap<Result, boolean>>();

function haveSameCells(a: Result, b: Result): boolean {
  if (a.cells.count !== b.cells.count || a.cells.hasAreas !== b.cells.hasAreas) {
    return false;
  }
  // Half a step of each rounded corner, the same between a cell and the grid that it was packed into.
  const slack = 2 * (a.record.step + b.record.step);
  const apart = a.centre.map((place, k) => place - b.centre[k]);
  for (let sensor = 0; sensor < a.cells.count; ++sensor) {
    const own = cornersOf(a.cells, sensor);
    const other = cornersOf(b.cells, sensor);
    const isSame =
      own.length === other.length &&
      own.every((corner, i) => corner.every((v, k) => Math.abs(v + apart[k] - other[i][k]) <= slack));
    if (!isSame) {
      return false;
    }
  }
  return true;
}
