import { expect, it } from "vitest";
import { Result } from "../../src/packing";
import { dataOf, folder } from "../pages";

/// Numbers of a fixed seed (Park and Miller, 1988).
class Random {
  private state: number;
  constructor(seed: number) {
    this.state = seed * 7919 + 1;
  }
  below(count: number): number {
    this.state = (this.state * 48271) % 2147483647;
    return this.state % count;
  }
}

function joined(...parts: Uint8Array[]): Uint8Array<ArrayBuffer> {
  const all = new Uint8Array(parts.reduce((sum, part) => sum + part.length, 0));
  parts.reduce((at, part) => (all.set(part, at), at + part.length), 0);
  return all;
}

const numbers = ["0", "-1", "1", "0.5", "1e9", "4294967296", "1e300", "null", '"1"', "[]"];

/// Another number in the record, which stands before all else.
function withOtherNumber(bytes: Uint8Array, random: Random): Uint8Array<ArrayBuffer> {
  const size = bytes.length < 4 ? 0 : new DataView(bytes.buffer).getUint32(0, true);
  const record = new TextDecoder().decode(bytes.subarray(4, 4 + size));
  const found = [...record.matchAll(/-?\d[\d.e+-]*/g)];
  if (found.length === 0) {
    return joined(bytes);
  }
  const one = found[random.below(found.length)];
  const text = numbers[random.below(numbers.length)];
  const changed = new TextEncoder().encode(
    record.slice(0, one.index) + text + record.slice(one.index + one[0].length),
  );
  const made = joined(bytes.subarray(0, 4), changed, bytes.subarray(4 + size));
  new DataView(made.buffer).setUint32(0, changed.length, true);
  return made;
}

/// One to six changes; the same ones for a number.
function damaged(whole: Uint8Array, number: number): Uint8Array<ArrayBuffer> {
  const random = new Random(number);
  let bytes = joined(whole);
  for (let change = random.below(6); change >= 0; --change) {
    const at = random.below(bytes.length + 1);
    const end = at + random.below(64);
    switch (random.below(8)) {
      case 0:
        bytes[at] ^= 1 << random.below(8);
        break;
      case 1: // large numbers, whose bytes begin with a set bit
        bytes.fill(128 + random.below(128), at, at + 1 + random.below(6));
        break;
      case 2:
        bytes.fill(random.below(256), at, end);
        break;
      case 3:
        bytes = joined(bytes.subarray(0, at), bytes.subarray(end));
        break;
      case 4:
        bytes = joined(bytes.subarray(0, end), bytes.subarray(at));
        break;
      case 5:
        bytes = random.below(8) === 0 ? joined(bytes.subarray(0, at)) : bytes;
        break;
      default:
        bytes = withOtherNumber(bytes, random);
    }
  }
  return bytes;
}

function readAll(bytes: Uint8Array<ArrayBuffer>): void {
  const result = new Result(bytes.buffer);
  for (const kind of ["column", "step"] as const) {
    const records = kind === "column" ? result.record.columns : result.record.steps;
    records.forEach((_, number) => void result.column(kind, number).ends);
  }
}

/// More by hand: INSOLATE_DAMAGES=10000
const count = Number(process.env.INSOLATE_DAMAGES ?? 200);

// Whatever error ends the reading, the page shows it above its picture; what must not be is that a browser
// waits. An endless loop would hold this test too.
it.each(["plane/page.html", "months/page.html", "points/page.html", "change.html"])(
  "damaged data of %s are read or end in an error soon",
  async (page) => {
    const whole = new Uint8Array(dataOf(`${folder}/${page}`));
    let refused = 0;
    for (let number = 0; number < count; ++number) {
      if (number % 100 === 0) {
        await new Promise(setImmediate); // Vitest asks now and then whether its tests are alive
      }
      const bytes = damaged(whole, number);
      const begin = performance.now();
      try {
        readAll(bytes);
      } catch {
        ++refused;
      }
      expect(performance.now() - begin, `damage ${number}`).toBeLessThan(2000);
    }
    expect(refused).toBeGreaterThan(count / 10);
    expect(refused).toBeLessThan(count);
  },
  count * 1000,
);

/// Seven bits to a byte, the lowest first.
function packed(number: number): number[] {
  return number < 128 ? [number] : [128 + (number % 128), ...packed(Math.floor(number / 128))];
}

/// The data of four cells, which are said to be so many in one column of so many rows.
function fourCells(cells: number, rows: number): ArrayBuffer {
  const block = Uint8Array.from([...packed(4 * cells + 1), 1, ...packed(rows), ...Array<number>(9).fill(0)]);
  const record = {
    ...{ format: 1, cells: 4, step: 1, north: 0, origin: [0, 0, 0], names: [], columns: [], steps: [], series: [] },
    scene: { vertices: 0, triangles: 0, edges: 0 },
    arrays: { blocks: [0, block.length] },
  };
  const text = new TextEncoder().encode(JSON.stringify(record));
  return joined(new Uint8Array(new Uint32Array([text.length]).buffer), text, block).buffer;
}

it("numbers of cells beyond those there are end in an error at once", () => {
  expect(new Result(fourCells(4, 4)).cells.count).toBe(4);
  for (const [cells, rows] of [
    [1e9, 1e9],
    [4, 3],
    [4, 1e9],
  ]) {
    expect(() => new Result(fourCells(cells, rows)), `${cells} in ${rows}`).toThrow("damaged");
  }
});
