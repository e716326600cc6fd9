/// Reads what study/output/page_model.cpp packs: whole numbers in as few bytes as they need, places as
/// differences to the last place, values as differences to their neighbours.

import { valueText } from "./format";

export interface ColumnRecord {
  name: string;
  title: string;
  unit: string;
  step: number;
  offset: number;
  decimals: number;
  bytes: number;
  /// A difference, whose colours run to both sides of zero.
  diverging: boolean;
}

export interface Site {
  latitude: number;
  longitude: number;
  timeZone: number;
  year: number;
}

interface ResultRecord {
  format: number;
  made_by: string;
  name: string;
  cells: number;
  /// Of the period.
  days: number;
  origin: [number, number, number];
  step: number;
  north: number;
  site?: Site;
  facts: [string, string][];
  warnings: string[];
  left_out: string;
  names: string[];
  scene: { vertices: number; triangles: number; edges: number };
  columns: ColumnRecord[];
  steps: ColumnRecord[];
  /// Before some were left out to keep the page small.
  steps_in_all: number;
  /// Lowest and highest value of all steps.
  step_ends: [number, number];
  series: { label: string; sensor: number | null }[];
  arrays: Record<string, [number, number]>;
}

/// Numbers of seven bits to a byte, the lowest first.
export class NumberReader {
  private at = 0;
  constructor(private readonly bytes: Uint8Array) {}
  get done(): boolean {
    return this.at >= this.bytes.length;
  }
  number(): number {
    let value = 0;
    let scale = 1;
    for (;;) {
      const byte = this.bytes[this.at++];
      if (byte === undefined) {
        throw new Error("the page's data end too early");
      }
      value += (byte & 0x7f) * scale;
      if (byte < 0x80) {
        return value;
      }
      scale *= 128;
    }
  }
  /// 0, 1, 2, 3 ... stand for 0, -1, 1, -2 ...
  difference(): number {
    const folded = this.number();
    return folded % 2 === 0 ? folded / 2 : -(folded + 1) / 2;
  }
}

export enum BlockKind {
  polygons,
  grid,
  points,
}

/// A run of cells in the order of the sensors.
export interface Block {
  kind: BlockKind;
  first: number;
  count: number;
  /// The place of its first cell in the texture of values.
  texel: number;
  columns: number;
  rows: number;
  /// Of a grid with gaps: by place, whether a cell is there.
  present: Uint8Array | null;
  /// Of a grid: corner, end of its first row, end of its first column [m].
  corners: Float32Array | null;
}

export const none = 0xffffffff;
export const sides = ["up", "north", "east", "south", "west", "down", "none"] as const;
/// Of points that have no normal: no surface.
export const noSide = sides.indexOf("none");

/// What is drawn of the cells. A vertex has a place within its grid, in cells, and the grid's first
/// texel, columns and rows; polygons are grids of one cell.
export interface CellMesh {
  position: Float32Array;
  place: Float32Array;
  lookup: Int32Array;
  index: Uint32Array;
}

export interface Cells {
  count: number;
  blocks: Block[];
  texels: number;
  /// By texel; null where both are the same.
  sensorOfTexel: Uint32Array | null;
  /// By sensor; null where both are the same.
  texelOfSensor: Uint32Array | null;
  area: Float32Array;
  /// By sensor, into `sides`.
  side: Uint8Array;
  /// By sensor, into the names; 0 is none.
  object: Uint32Array;
  material: Uint32Array;
  hasAreas: boolean;
  mesh: CellMesh;
  /// Of polygons: by sensor, the first vertex.
  firstVertex: Uint32Array;
}

export interface SceneMesh {
  position: Float32Array;
  index: Uint32Array;
  edges: Uint32Array;
  /// By triangle and by edge, into `pairs`; 0 is none.
  triangleObject: Uint32Array;
  edgeObject: Uint32Array;
  /// Object and material by name.
  pairs: [number, number][];
}

/// Values by sensor as multiples of a step. `missing` stands for no value.
export class Column {
  readonly missing: number;
  constructor(
    readonly name: string,
    readonly title: string,
    readonly unit: string,
    readonly step: number,
    readonly offset: number,
    readonly decimals: number,
    readonly levels: Uint16Array,
    readonly diverging = false,
  ) {
    this.missing = 0xffff;
  }
  private spanned: [number, number] | null = null;
  /// The lowest and the highest value; 0 and 1 where there is none.
  get ends(): [number, number] {
    if (!this.spanned) {
      let lowest = this.missing;
      let highest = -1;
      for (const level of this.levels) {
        if (level !== this.missing) {
          lowest = Math.min(lowest, level);
          highest = Math.max(highest, level);
        }
      }
      const valueOf = (level: number): number => (this.offset + level) * this.step;
      this.spanned = highest < 0 ? [0, 1] : [valueOf(lowest), valueOf(highest)];
    }
    return this.spanned;
  }
  at(sensor: number): number {
    const level = this.levels[sensor];
    return level === this.missing ? NaN : (this.offset + level) * this.step;
  }
  text(value: number): string {
    return Number.isFinite(value) ? valueText(value, this.unit, Math.max(0, this.decimals)) : "no value";
  }
}

export interface Series {
  label: string;
  sensor: number | null;
  /// Total of each hour of the year [Wh/m2].
  hours: Float32Array;
}

export class Result {
  readonly record: ResultRecord;
  readonly cells: Cells;
  readonly scene: SceneMesh;
  readonly series: Series[];
  /// By sensor, 1 where it is enclosed: it has no values; null where none is.
  readonly enclosed: Uint8Array | null;
  /// Taken off all places [m], so that single precision does.
  readonly centre: [number, number, number];
  private readonly bytes: Uint8Array;
  private readonly columns = new Map<string, Column>();

  constructor(buffer: ArrayBuffer) {
    const size = new DataView(buffer).getUint32(0, true);
    this.record = JSON.parse(new TextDecoder().decode(new Uint8Array(buffer, 4, size)));
    if (this.record.format !== 1) {
      throw new Error("the page's data are of another version than its script");
    }
    this.bytes = new Uint8Array(buffer, 4 + size);
    const { origin, step } = this.record;
    this.centre = [origin[0], origin[1], origin[2]];
    this.cells = readCells(this.array("blocks"), this.record.cells, step, this.record.north);
    readFaces(this.array("faces"), this.cells);
    this.scene = readScene(this);
    this.enclosed = readEnclosed(this.array("enclosed"), this.cells.count);
    this.series = this.record.series.map((one, i) => ({
      label: one.label,
      sensor: one.sensor,
      hours: readHours(this.array(`series${i}`)),
    }));
  }

  array(name: string): Uint8Array {
    const place = this.record.arrays[name];
    return place ? this.bytes.subarray(place[0], place[0] + place[1]) : new Uint8Array();
  }
  floats(name: string): Float32Array {
    const bytes = this.array(name);
    return new Float32Array(bytes.buffer.slice(bytes.byteOffset, bytes.byteOffset + bytes.length));
  }
  name(number: number): string {
    return number === 0 ? "" : this.record.names[number - 1];
  }
  get hasObjects(): boolean {
    return this.array("faces").length > 0;
  }

  /// @param kind "column" or "step"
  column(kind: "column" | "step", number: number): Column {
    const key = `${kind}${number}`;
    let column = this.columns.get(key);
    if (!column) {
      const record = (kind === "column" ? this.record.columns : this.record.steps)[number];
      const levels = readLevels(this.array(key), record.bytes, this.cells);
      column = new Column(
        record.name,
        record.title,
        record.unit,
        record.step,
        record.offset,
        record.decimals,
        levels,
        record.diverging,
      );
      this.columns.set(key, column);
    }
    return column;
  }
  columnNamed(name: string): Column | null {
    const number = this.record.columns.findIndex((column) => column.name === name);
    return number < 0 ? null : this.column("column", number);
  }
}

/// A normal's side: within 60 degrees of up or down, else the nearest quarter in plan, as --facing has
/// them. The model's north is turned first.
export function sideOf(x: number, y: number, z: number, north: number): number {
  const size = Math.hypot(x, y, z);
  if (size === 0) {
    return noSide;
  }
  if (z >= 0.5 * size) {
    return 0;
  }
  if (z <= -0.5 * size) {
    return 5;
  }
  const azimuth = (Math.atan2(x, y) * 180) / Math.PI - north;
  return 1 + (Math.round((((azimuth % 360) + 360) % 360) / 90) % 4);
}

/// More cells, and more places of grids with gaps, than a page can show; damaged numbers are larger.
const mostCells = 2 ** 27;

/// Numbers that are followed without reading must fit what is there: they would cost any time and memory.
function require(fits: boolean): void {
  if (!fits) {
    throw new Error("the page's data are damaged");
  }
}

function readCells(bytes: Uint8Array, count: number, step: number, north: number): Cells {
  require(count <= mostCells);
  const reader = new NumberReader(bytes);
  const blocks: Block[] = [];
  const area = new Float32Array(count);
  const side = new Uint8Array(count);
  const firstVertex = new Uint32Array(count);
  const position: number[] = [];
  const place: number[] = [];
  const lookup: number[] = [];
  const index: number[] = [];
  const last = [0, 0, 0];
  let texel = 0;
  let hasGaps = false;
  let first = 0;
  const corner = (): [number, number, number] => {
    last[0] += reader.difference();
    last[1] += reader.difference();
    last[2] += reader.difference();
    return [last[0] * step, last[1] * step, last[2] * step];
  };
  while (first < count) {
    const head = reader.number();
    const kind = (head & 3) as BlockKind;
    const block: Block = {
      kind,
      first,
      count: (head - (head & 3)) / 4,
      texel,
      columns: 1,
      rows: 1,
      present: null,
      corners: null,
    };
    require(block.count <= count - first);
    blocks.push(block);
    if (kind === BlockKind.grid) {
      block.columns = reader.number();
      block.rows = reader.number();
      const a = corner();
      const b = corner();
      const d = corner();
      block.corners = new Float32Array([...a, ...b, ...d]);
      const u = [b[0] - a[0], b[1] - a[1], b[2] - a[2]];
      const v = [d[0] - a[0], d[1] - a[1], d[2] - a[2]];
      const places = block.columns * block.rows;
      require(places >= block.count && places <= mostCells);
      if (places > block.count) {
        hasGaps = true;
        block.present = new Uint8Array(places);
        for (let i = 0, there = 1; i < places; there ^= 1) {
          const run = reader.number();
          block.present.fill(there, i, i + run);
          i += run;
        }
      }
      const normal = cross(u, v);
      area.fill(Math.hypot(...normal) / places, first, first + block.count);
      side.fill(sideOf(normal[0], normal[1], normal[2], north), first, first + block.count);
      const base = position.length / 3;
      position.push(...a, ...b, b[0] + v[0], b[1] + v[1], b[2] + v[2], ...d);
      place.push(0, 0, block.columns, 0, block.columns, block.rows, 0, block.rows);
      for (let k = 0; k < 4; ++k) {
        lookup.push(texel, block.columns, block.rows);
      }
      index.push(base, base + 1, base + 2, base, base + 2, base + 3);
      texel += places;
    } else {
      for (let i = first; i < first + block.count; ++i) {
        const base = position.length / 3;
        firstVertex[i] = base;
        if (kind === BlockKind.points) {
          const at = corner();
          const normal = [reader.difference(), reader.difference(), reader.difference()];
          position.push(...at, ...normal); // laid out as a disc once their distances are known
          side[i] = sideOf(normal[0], normal[1], normal[2], north);
          continue;
        }
        const corners = reader.number();
        for (let k = 0; k < corners; ++k) {
          const at = corner();
          position.push(at[0], at[1], at[2]);
          place.push(0.5, 0.5);
          lookup.push(texel + i - first, 1, 1);
        }
        for (let k = 2; k < corners; ++k) {
          index.push(base, base + k - 1, base + k);
        }
        const normal = polygonArea(position, base, corners);
        area[i] = 0.5 * Math.hypot(normal[0], normal[1], normal[2]);
        side[i] = sideOf(normal[0], normal[1], normal[2], north);
      }
      texel += block.count;
    }
    first += block.count;
  }
  let sensorOfTexel: Uint32Array | null = null;
  let texelOfSensor: Uint32Array | null = null;
  if (hasGaps) {
    sensorOfTexel = new Uint32Array(texel).fill(none);
    texelOfSensor = new Uint32Array(count);
    for (const block of blocks) {
      let sensor = block.first;
      const places = block.present ? block.present.length : block.count;
      for (let i = 0; i < places; ++i) {
        if (!block.present || block.present[i] === 1) {
          texelOfSensor[sensor] = block.texel + i;
          sensorOfTexel[block.texel + i] = sensor++;
        }
      }
    }
  }
  const isPoints = blocks.length > 0 && blocks[0].kind === BlockKind.points;
  const mesh = isPoints
    ? discs(position, count)
    : {
        position: new Float32Array(position),
        place: new Float32Array(place),
        lookup: new Int32Array(lookup),
        index: new Uint32Array(index),
      };
  if (isPoints) {
    for (let i = 0; i < count; ++i) {
      firstVertex[i] = 6 * i;
    }
    area.fill(1);
  }
  return {
    count,
    blocks,
    texels: texel,
    sensorOfTexel,
    texelOfSensor,
    area,
    side,
    object: new Uint32Array(count),
    material: new Uint32Array(count),
    hasAreas: !isPoints,
    mesh,
    firstVertex,
  };
}

function cross(a: number[], b: number[]): [number, number, number] {
  return [a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]];
}

/// Newell's sum: twice the area along the normal.
function polygonArea(
  position: ArrayLike<number>,
  base: number,
  corners: number,
): [number, number, number] {
  const sum: [number, number, number] = [0, 0, 0];
  const o = 3 * base;
  for (let k = 1; k + 1 < corners; ++k) {
    const a = o + 3 * k;
    const b = a + 3;
    const part = cross(
      [position[a] - position[o], position[a + 1] - position[o + 1], position[a + 2] - position[o + 2]],
      [position[b] - position[o], position[b + 1] - position[o + 1], position[b + 2] - position[o + 2]],
    );
    sum[0] += part[0];
    sum[1] += part[1];
    sum[2] += part[2];
  }
  return sum;
}

/// Points as hexagons, sized by how close they stand.
/// @param points place and normal, one after the other
function discs(points: number[], count: number): CellMesh {
  const low = [Infinity, Infinity, Infinity];
  const high = [-Infinity, -Infinity, -Infinity];
  for (let i = 0; i < count; ++i) {
    for (let k = 0; k < 3; ++k) {
      low[k] = Math.min(low[k], points[6 * i + k]);
      high[k] = Math.max(high[k], points[6 * i + k]);
    }
  }
  const edges = [0, 1, 2].map((k) => Math.max(high[k] - low[k], 0)).sort((a, b) => b - a);
  const spread = Math.max(edges[0] * edges[1], (edges[0] * edges[0]) / Math.max(count, 1), 1e-6);
  const radius = 0.4 * Math.sqrt(spread / Math.max(count, 1));
  const position = new Float32Array(18 * count);
  const place = new Float32Array(12 * count).fill(0.5);
  const lookup = new Int32Array(18 * count).fill(1);
  const index = new Uint32Array(12 * count);
  for (let i = 0; i < count; ++i) {
    let n = points.slice(6 * i + 3, 6 * i + 6);
    const size = Math.hypot(n[0], n[1], n[2]);
    n = size > 0 ? n.map((v) => v / size) : [0, 0, 1];
    const aside = Math.abs(n[2]) < 0.9 ? [0, 0, 1] : [1, 0, 0];
    const u0 = cross(aside, n);
    const uSize = Math.hypot(...u0);
    const u = u0.map((v) => v / uSize);
    const v = cross(n, u);
    for (let k = 0; k < 6; ++k) {
      const c = radius * Math.cos((k * Math.PI) / 3);
      const s = radius * Math.sin((k * Math.PI) / 3);
      for (let d = 0; d < 3; ++d) {
        position[18 * i + 3 * k + d] = points[6 * i + d] + c * u[d] + s * v[d];
      }
      lookup[18 * i + 3 * k] = i;
    }
    for (let k = 0; k < 4; ++k) {
      index.set([6 * i, 6 * i + k + 1, 6 * i + k + 2], 12 * i + 3 * k);
    }
  }
  return { position, place, lookup, index };
}

function readFaces(bytes: Uint8Array, cells: Cells): void {
  const reader = new NumberReader(bytes);
  for (let first = 0; !reader.done; ) {
    const count = reader.number();
    cells.object.fill(reader.number(), first, first + count);
    cells.material.fill(reader.number(), first, first + count);
    first += count;
  }
}

/// Runs of cells that count and of enclosed ones in turn.
function readEnclosed(bytes: Uint8Array, count: number): Uint8Array | null {
  const reader = new NumberReader(bytes);
  const enclosed = new Uint8Array(count);
  let any = false;
  for (let first = 0, own = 0; !reader.done; own ^= 1) {
    const end = first + reader.number();
    enclosed.fill(own, first, end);
    any ||= own === 1 && end > first;
    first = end;
  }
  return any ? enclosed : null;
}

function readRuns(reader: NumberReader, count: number): Uint32Array {
  const numbers = new Uint32Array(count);
  for (let first = 0; first < count && !reader.done; ) {
    const run = reader.number();
    numbers.fill(reader.number(), first, first + run);
    first += run;
  }
  return numbers;
}

function readScene(result: Result): SceneMesh {
  const { vertices, triangles, edges } = result.record.scene;
  const step = result.record.step;
  // Each number takes a byte at least.
  require(
    3 * vertices <= result.array("vertices").length &&
      3 * triangles <= result.array("triangles").length &&
      2 * edges <= result.array("edges").length,
  );
  const position = new Float32Array(3 * vertices);
  const places = new NumberReader(result.array("vertices"));
  const last = [0, 0, 0];
  for (let i = 0; i < position.length; ++i) {
    last[i % 3] += places.difference();
    position[i] = last[i % 3] * step;
  }
  const index = new Uint32Array(3 * triangles);
  const corners = new NumberReader(result.array("triangles"));
  for (let i = 0, highest = 0; i < index.length; ++i) {
    index[i] = highest - corners.number();
    highest = Math.max(highest, index[i] + 1);
  }
  const lines = new Uint32Array(2 * edges);
  const ends = new NumberReader(result.array("edges"));
  for (let i = 0, low = 0; i < edges; ++i) {
    low += ends.difference();
    lines[2 * i] = low;
    lines[2 * i + 1] = low + ends.number();
  }
  const objects = new NumberReader(result.array("objects"));
  const pairs: [number, number][] = [];
  if (!objects.done) {
    for (let i = objects.number(); i > 0; --i) {
      pairs.push([objects.number(), objects.number()]);
    }
  }
  return {
    position,
    index,
    edges: lines,
    triangleObject: readRuns(objects, triangles),
    edgeObject: readRuns(new NumberReader(result.array("edgeObjects")), edges),
    pairs,
  };
}

/// Undoes the differences: a cell in a full grid was expected to be the mean of those to its left and
/// above it, at an edge the one of them that there is; any other cell to be like the one before.
export function readLevels(bytes: Uint8Array, width: number, cells: Cells): Uint16Array {
  const count = cells.count;
  const levels = new Uint16Array(count);
  const mask = width === 2 ? 0xffff : 0xff;
  const rest = (cell: number): number => {
    if (width === 1) {
      return bytes[cell];
    }
    const folded = bytes[cell] | (bytes[count + cell] << 8);
    return folded & 1 ? ~(folded >> 1) : folded >> 1;
  };
  for (const block of cells.blocks) {
    const isFull = block.kind === BlockKind.grid && !block.present;
    const columns = block.columns;
    for (let k = 0; k < block.count; ++k) {
      const cell = block.first + k;
      let guess = 0;
      if (!isFull) {
        guess = cell > 0 ? levels[cell - 1] : 0;
      } else {
        const hasLeft = k % columns !== 0;
        if (k >= columns) {
          const upper = levels[cell - columns];
          guess = hasLeft ? (levels[cell - 1] + upper) >> 1 : upper;
        } else if (hasLeft) {
          guess = levels[cell - 1];
        }
      }
      levels[cell] = (guess + rest(cell)) & mask;
    }
  }
  if (width === 1) {
    for (let i = 0; i < count; ++i) {
      if (levels[i] === 0xff) {
        levels[i] = 0xffff;
      }
    }
  }
  return levels;
}

function readHours(bytes: Uint8Array): Float32Array {
  const count = bytes.length / 2;
  const hours = new Float32Array(count);
  for (let i = 0; i < count; ++i) {
    hours[i] = (bytes[i] | (bytes[count + i] << 8)) / 10;
  }
  return hours;
}

/// Corners of a cell [m], as the result's places are counted.
export function cornersOf(cells: Cells, sensor: number): number[][] {
  const block = blockOf(cells, sensor);
  if (block.kind !== BlockKind.grid || !block.corners) {
    const { position } = cells.mesh;
    const first = cells.firstVertex[sensor];
    const end =
      sensor + 1 < block.first + block.count
        ? cells.firstVertex[sensor + 1]
        : nextVertex(cells, first);
    const corners: number[][] = [];
    for (let v = first; v < end; ++v) {
      corners.push([position[3 * v], position[3 * v + 1], position[3 * v + 2]]);
    }
    return corners;
  }
  const place = cells.texelOfSensor ? cells.texelOfSensor[sensor] - block.texel : sensor - block.first;
  const column = place % block.columns;
  const row = Math.floor(place / block.columns);
  const c = block.corners;
  const at = (u: number, v: number): number[] =>
    [0, 1, 2].map((k) => c[k] + ((c[3 + k] - c[k]) * u) / block.columns + ((c[6 + k] - c[k]) * v) / block.rows);
  return [at(column, row), at(column + 1, row), at(column + 1, row + 1), at(column, row + 1)];
}

/// The vertex after the last of a polygon: all of its vertices have the same texel.
function nextVertex(cells: Cells, first: number): number {
  const { lookup } = cells.mesh;
  let end = first;
  while (3 * end < lookup.length && lookup[3 * end] === lookup[3 * first]) {
    ++end;
  }
  return end;
}

export function blockOf(cells: Cells, sensor: number): Block {
  let low = 0;
  let high = cells.blocks.length - 1;
  while (low < high) {
    const middle = (low + high + 1) >> 1;
    if (cells.blocks[middle].first <= sensor) {
      low = middle;
    } else {
      high = middle - 1;
    }
  }
  return cells.blocks[low];
}

export function normalOf(corners: number[][]): [number, number, number] {
  const flat = corners.flat();
  const area = polygonArea(flat, 0, corners.length);
  const size = Math.hypot(...area) || 1;
  return [area[0] / size, area[1] / size, area[2] / size];
}
