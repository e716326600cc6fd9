/// The colours of the pictures, study/output/color_map.cpp line by line; tests/colors.json holds both to
/// each other.

export type Scheme = "sequential" | "diverging";

function linearOf(lightness: number, chroma: number, hue: number): [number, number, number] {
  const angle = (hue * Math.PI) / 180;
  const fy = (lightness + 16) / 116;
  const inverse = (f: number): number => {
    const delta = 6 / 29;
    return f > delta ? f * f * f : 3 * delta * delta * (f - 4 / 29);
  };
  const x = 0.95047 * inverse(fy + (chroma * Math.cos(angle)) / 500);
  const y = inverse(fy);
  const z = 1.08883 * inverse(fy - (chroma * Math.sin(angle)) / 200);
  return [
    3.2404542 * x - 1.5371385 * y - 0.4985314 * z,
    -0.969266 * x + 1.8760108 * y + 0.041556 * z,
    0.0556434 * x - 0.2040259 * y + 1.0572252 * z,
  ];
}

function largestChroma(lightness: number, hue: number): number {
  let low = 0;
  let high = 150;
  for (let step = 0; step < 40; ++step) {
    const middle = 0.5 * (low + high);
    if (linearOf(lightness, middle, hue).every((v) => v >= 0 && v <= 1)) {
      low = middle;
    } else {
      high = middle;
    }
  }
  return low;
}

function encoded(linear: number): number {
  const v = Math.min(Math.max(linear, 0), 1);
  return Math.round(255 * (v <= 0.0031308 ? 12.92 * v : 1.055 * v ** (1 / 2.4) - 0.055));
}

/// 256 colours as red, green, blue, 0..255 each, and an opaque fourth.
export function colorTable(scheme: Scheme): Uint8Array {
  const count = 256;
  const diverging = scheme === "diverging";
  const lightnessAt = (t: number): number => (diverging ? 95 - 110 * Math.abs(t - 0.5) : 14 + 80 * t);
  const hueAt = (t: number): number => (diverging ? (t < 0.5 ? 270 : 55) : 288 + 168 * t);
  const rim = Array.from({ length: count }, (_, i) => {
    const t = i / (count - 1);
    const own = Math.min(0.94 * largestChroma(lightnessAt(t), hueAt(t)), 76);
    return diverging ? Math.min(own, 160 * Math.abs(t - 0.5)) : own;
  });
  const reach = diverging ? 4 : 20;
  const table = new Uint8Array(4 * count);
  for (let i = 0; i < count; ++i) {
    let chroma = 0;
    for (let k = i - reach; k <= i + reach; ++k) {
      chroma += rim[Math.min(Math.max(k, 0), count - 1)] / (2 * reach + 1);
    }
    const t = i / (count - 1);
    table.set([...linearOf(lightnessAt(t), chroma, hueAt(t)).map(encoded), 255], 4 * i);
  }
  return table;
}

/// How values become colours: between the ends, in as many steps, 0 for none.
export interface Scale {
  lowest: number;
  highest: number;
  steps: number;
  scheme: Scheme;
}

/// 0..1, as the shader has it.
export function placeOf(value: number, scale: Scale): number {
  const range = scale.highest - scale.lowest;
  const t = Math.min(Math.max(range > 0 ? (value - scale.lowest) / range : 0.5, 0), 1);
  if (scale.steps < 2) {
    return t;
  }
  const step = Math.min(Math.floor(t * scale.steps), scale.steps - 1);
  return step / (scale.steps - 1);
}

export function colorAt(place: number, table: Uint8Array): [number, number, number] {
  const i = 4 * Math.round(Math.min(Math.max(place, 0), 1) * 255);
  return [table[i], table[i + 1], table[i + 2]];
}

/// A number that a person would take for the end of a scale: 1, 2, 2.5 or 5 times a power of ten.
export function roundStep(range: number, pieces: number): number {
  const rough = range / Math.max(pieces, 1);
  const power = 10 ** Math.floor(Math.log10(rough));
  return [1, 2, 2.5, 5, 10].map((m) => m * power).find((step) => step >= rough * 0.999) ?? rough;
}

export function ticks(lowest: number, highest: number, pieces: number): number[] {
  const range = highest - lowest;
  if (!(range > 0)) {
    return [];
  }
  const step = roundStep(range, pieces);
  const list: number[] = [];
  for (let i = Math.ceil(lowest / step - 1e-9); i * step <= highest + 1e-9 * range; ++i) {
    list.push(i * step);
  }
  return list;
}
