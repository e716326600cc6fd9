import { expect, it } from "vitest";
import { Result } from "../../src/packing";
import { dataOf, folder } from "../pages";

/// Numbers of a fixed seed (Park and Miller, 1988).
class Random {
  constructor(private state: number) {}
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

/// One to six changes: bytes, a number of the record, a piece that is lost.
function damage(whole: Uint8Array, random: Random): Uint8Array<ArrayBuffer> {
  let bytes = joined(whole);
  for (let change = random.below(6); change >= 0; --change) {
    const at = random.below(bytes.length);
    const view = new DataView(bytes.buffer);
    const size = bytes.length < 4 ? 0 : view.getUint32(0, true);
    switch (random.below(6)) {
      case 0:
        bytes[at] ^= 1 << random.below(8);
        break;
      case 1:
        bytes[at] = 0xff;
        break;
      case 2:
        bytes.fill(random.below(256), at, at + 1 + random.below(16));
        break;
      case 3:
        bytes = joined(bytes.subarray(0, at), bytes.subarray(at + 1 + random.below(64)));
        break;
      default: {
        const record = new TextDecoder().decode(bytes.subarray(4, 4 + size));
        const found = [...record.matchAll(/-?\d[\d.e+-]*/g)];
        if (found.length > 0) {
          const one = found[random.below(found.length)];
          const text = numbers[random.below(numbers.length)];
          const changed = new TextEncoder().encode(
            record.slice(0, one.index) + text + record.slice(one.index + one[0].length),
          );
          bytes = joined(bytes.subarray(0, 4), changed, bytes.subarray(4 + size));
          new DataView(bytes.buffer).setUint32(0, changed.length, true);
        }
      }
    }
  }
  return bytes;
}

/// More by hand: INSOLATE_DAMAGES=100000 npx vitest run tests/unit/damage.test.ts
const count = Number(process.env.INSOLATE_DAMAGES ?? 100);

it.each(["plane/page.html", "months/page.html", "points/page.html", "change.html"])(
  "damaged data of %s are read or refused, in bounded time",
  (page) => {
    const whole = new Uint8Array(dataOf(`${folder}/${page}`));
    const random = new Random(20261123);
    let refused = 0;
    for (let i = 0; i < count; ++i) {
      const bytes = damage(whole, random);
      const begin = performance.now();
      try {
        const result = new Result(bytes.buffer);
        for (const kind of ["column", "step"] as const) {
          const records = kind === "column" ? result.record.columns : result.record.steps;
          records.forEach((_, number) => void result.column(kind, number).ends);
        }
      } catch (error) {
        expect(error).toBeInstanceOf(Error);
        ++refused;
      }
      expect(performance.now() - begin, `damage ${i}`).toBeLessThan(2000);
    }
    expect(refused).toBeGreaterThan(count / 10);
    expect(refused).toBeLessThan(count);
  },
  count * 1000,
);
