/// The colour bar with the areas by value beside it: what the colours mean, and a filter.
import { colorAt, colorTable, placeOf, type Scale, ticks } from "./colors";
import { h } from "./dom";
import { fixedText } from "./format";
import type { Histogram } from "./histogram";

export interface LegendContent {
  title: string;
  unit: string;
  /// Of a value beside the bar; null: numbers with the decimals that they take.
  label: ((value: number) => string) | null;
  scale: Scale;
  step: number;
  histogram: Histogram;
  /// Values outside of it are muted; null: none are.
  range: [number, number] | null;
  /// Whether the ends are the reader's own.
  hasOwnEnds: boolean;
  /// What the filter leaves, in words.
  filterText: string;
}

const bins = 48;

export class Legend {
  static readonly bins = bins;
  readonly element: HTMLElement;
  onEnds: (lowest: number | null, highest: number | null) => void = () => undefined;
  onRange: (range: [number, number] | null) => void = () => undefined;
  private readonly canvas = h("canvas", {
    class: "histogram",
    tabindex: 0,
    role: "group",
    "aria-label":
      "Areas by value. Drag to show only a range; with the keyboard, arrow up and down move its lower end, with Shift its upper end, Escape shows all.",
  });
  private readonly title = h("b");
  private readonly unit = h("span");
  private readonly top = h("input", { type: "number", step: "any", "aria-label": "Upper end of the colours" });
  private readonly bottom = h("input", { type: "number", step: "any", "aria-label": "Lower end of the colours" });
  private readonly reset = h("button", { type: "button", title: "Ends of the values shown" }, "auto");
  private readonly filter = h("p", { class: "filter", "aria-live": "polite" });
  private content: LegendContent | null = null;

  constructor() {
    this.element = h(
      "section",
      { id: "legend", "aria-label": "Colours" },
      h("p", { class: "unit" }, this.title, this.unit),
      h("div", { class: "end" }, this.top, this.reset),
      h("div", { class: "plot" }, this.canvas),
      h("div", { class: "end" }, this.bottom),
      this.filter,
    );
    const ends = (): void => {
      const low = this.bottom.value === "" ? null : Number(this.bottom.value);
      const high = this.top.value === "" ? null : Number(this.top.value);
      if ((low ?? -Infinity) < (high ?? Infinity)) {
        this.onEnds(low, high);
      } else if (this.content) {
        this.show(this.content); // ends that are not in order are put back
      }
    };
    this.top.addEventListener("change", ends);
    this.bottom.addEventListener("change", ends);
    this.reset.addEventListener("click", () => this.onEnds(null, null));
    this.brush();
  }

  show(content: LegendContent): void {
    this.content = content;
    const { scale } = content;
    this.title.textContent = content.title;
    this.title.title = content.title;
    this.unit.textContent = content.unit || "\u00a0";
    const decimals = Math.max(0, Math.min(4, Math.ceil(-Math.log10(content.step) - 1e-9)));
    this.top.value = scale.highest.toFixed(decimals);
    this.bottom.value = scale.lowest.toFixed(decimals);
    this.top.hidden = content.label !== null;
    this.bottom.hidden = content.label !== null;
    this.reset.hidden = !content.hasOwnEnds;
    this.filter.replaceChildren(content.filterText);
    if (content.range) {
      this.filter.append(
        " ",
        h("button", { type: "button", click: () => this.onRange(null) }, "show all"),
      );
    }
    this.draw();
  }

  draw(): void {
    const content = this.content;
    const { clientWidth: width, clientHeight: height } = this.canvas;
    if (!content || width === 0) {
      return;
    }
    const ratio = window.devicePixelRatio || 1;
    this.canvas.width = Math.round(width * ratio);
    this.canvas.height = Math.round(height * ratio);
    const context = this.canvas.getContext("2d");
    if (!context) {
      return;
    }
    context.scale(ratio, ratio);
    drawLegend(context, content, width, height, width > 100);
  }

  private valueAt(event: PointerEvent): number {
    const box = this.canvas.getBoundingClientRect();
    const { lowest, highest } = this.content?.scale ?? { lowest: 0, highest: 1 };
    const t = Math.min(Math.max(1 - (event.clientY - box.top) / box.height, 0), 1);
    return lowest + t * (highest - lowest);
  }

  /// Ends beyond which the colours go on are open.
  private opened(a: number, b: number): [number, number] | null {
    const { lowest, highest } = this.content?.scale ?? { lowest: 0, highest: 1 };
    const near = 0.012 * (highest - lowest);
    const from = Math.min(a, b) <= lowest + near ? -Infinity : Math.min(a, b);
    const to = Math.max(a, b) >= highest - near ? Infinity : Math.max(a, b);
    return from === -Infinity && to === Infinity ? null : [from, to];
  }

  private brush(): void {
    let start: number | null = null;
    this.canvas.addEventListener("pointerdown", (event) => {
      start = this.valueAt(event);
      this.canvas.setPointerCapture(event.pointerId);
    });
    this.canvas.addEventListener("pointermove", (event) => {
      if (start !== null) {
        this.onRange(this.opened(start, this.valueAt(event)));
      }
    });
    this.canvas.addEventListener("pointerup", (event) => {
      const { lowest, highest } = this.content?.scale ?? { lowest: 0, highest: 1 };
      if (start !== null && Math.abs(this.valueAt(event) - start) < 0.01 * (highest - lowest)) {
        this.onRange(null); // a click
      }
      start = null;
    });
    this.canvas.addEventListener("keydown", (event) => {
      if (!this.content || !["ArrowUp", "ArrowDown", "Escape"].includes(event.key)) {
        return;
      }
      event.preventDefault();
      event.stopPropagation();
      if (event.key === "Escape") {
        return this.onRange(null);
      }
      const { lowest, highest } = this.content.scale;
      const move = ((highest - lowest) / 40) * (event.key === "ArrowUp" ? 1 : -1);
      let from = Math.max(this.content.range?.[0] ?? lowest, lowest);
      let to = Math.min(this.content.range?.[1] ?? highest, highest);
      if (event.shiftKey) {
        to = Math.min(Math.max(to + move, from), highest);
      } else {
        from = Math.max(Math.min(from + move, to), lowest);
      }
      this.onRange(this.opened(from, to));
    });
  }
}

function style(name: string): string {
  return getComputedStyle(document.documentElement).getPropertyValue(name).trim();
}

/// Bar, areas and numbers; the same for the screen and for a picture file.
export function drawLegend(
  context: CanvasRenderingContext2D,
  content: LegendContent,
  width: number,
  height: number,
  withNumbers: boolean,
): void {
  const { scale, histogram, range } = content;
  const table = colorTable(scale.scheme);
  const valueAt = (y: number): number =>
    scale.lowest + (1 - y / height) * (scale.highest - scale.lowest);
  const inRange = (value: number): boolean => !range || (value >= range[0] && value <= range[1]);
  const bar = 16;
  for (let y = 0; y < height; ++y) {
    const value = valueAt(y + 0.5);
    const [r, g, b] = colorAt(placeOf(value, scale), table);
    context.globalAlpha = inRange(value) ? 1 : 0.25;
    context.fillStyle = `rgb(${r},${g},${b})`;
    context.fillRect(0, y, bar, 1.02);
  }
  const left = bar + 4;
  const right = withNumbers ? width - 48 : width;
  const most = Math.max(...histogram.areas, 1e-12);
  const tall = height / histogram.areas.length;
  context.fillStyle = style("--soft");
  histogram.areas.forEach((area, i) => {
    const value = histogram.lowest + ((i + 0.5) / histogram.areas.length) * (histogram.highest - histogram.lowest);
    context.globalAlpha = inRange(value) ? 0.62 : 0.18;
    // Roots of areas: rare values are there to be found.
    const long = area > 0 ? Math.max(1, Math.sqrt(area / most) * (right - left)) : 0;
    context.fillRect(left, height - (i + 1) * tall + 0.5, long, Math.max(tall - 1, 0.8));
  });
  context.globalAlpha = 1;
  if (range) {
    context.strokeStyle = style("--accent");
    context.lineWidth = 1.5;
    for (const end of range) {
      if (Number.isFinite(end)) {
        const y = height * (1 - (end - scale.lowest) / (scale.highest - scale.lowest));
        context.beginPath();
        context.moveTo(0, y);
        context.lineTo(right, y);
        context.stroke();
      }
    }
  }
  if (withNumbers) {
    context.fillStyle = style("--ink");
    context.font = "11.5px system-ui, sans-serif";
    context.textAlign = "right";
    context.textBaseline = "middle";
    // An answer has two colours, whose names stand beside them.
    const isAnswer = content.label !== null && scale.steps === 2;
    const marks = isAnswer ? [0.25, 0.75] : ticks(scale.lowest, scale.highest, 6);
    const step = marks.length > 1 ? marks[1] - marks[0] : 1;
    const decimals = [0, 1, 2, 3, 4].find((n) => Math.abs(step * 10 ** n - Math.round(step * 10 ** n)) < 1e-6) ?? 5;
    for (const value of marks) {
      const y = height * (1 - (value - scale.lowest) / (scale.highest - scale.lowest));
      if (y > 7 && y < height - 7) {
        context.fillText(content.label ? content.label(isAnswer ? Math.round(value) : value) : fixedText(value, decimals), width, y);
        context.globalAlpha = isAnswer ? 0 : 0.25;
        context.fillRect(0, y - 0.5, right, 1);
        context.globalAlpha = 1;
      }
    }
  }
}
