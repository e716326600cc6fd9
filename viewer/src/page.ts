/// The page: its state, its controls, and what happens when one is used.
import type uPlot from "uplot";
import { drawCarpet, chart, meanDay } from "./charts";
import type { Scale } from "./colors";
import { h, icon, download } from "./dom";
import * as text from "./format";
import { type GroupKey, groupName, groupNumbers, GroupTable } from "./groups";
import { areaWithin, histogram, sumsBy } from "./histogram";
import { drawLegend, Legend, type LegendContent } from "./legend";
import { differenceOf } from "./difference";
import { Column, type ColumnRecord, cornersOf, noSide, normalOf, type Result, type Series } from "./packing";
import { comparable, sameCells, sharedColumns, shareSteps } from "./shared";
import { SunPath } from "./sun";
import { colorTexture, type Hit, type ModelView, type Section, type Theme, View } from "./view";
import licences from "../dist/licences.txt";

const light: Theme = {
  background: "#f3f2ee", bright: "#f1efea", dim: "#b9b7b1", muted: "#dcdad4", missing: "#9e9e9e",
  line: "#23262b", lineOpacity: 0.3, cellLine: "#ffffff",
};
const dark: Theme = {
  background: "#15171b", bright: "#4a4e56", dim: "#23262b", muted: "#30343b", missing: "#6e6e6e",
  line: "#dadde3", lineOpacity: 0.24, cellLine: "#101010",
};

/// What is compared with what: a result, several beside each other, or another less the first.
type Mode = { kind: "one"; result: number } | { kind: "beside" } | { kind: "difference"; with: number };

export class Page {
  readonly view: View;
  readonly results: Result[] = [];
  readonly legend = new Legend();
  private readonly app: HTMLElement;
  private readonly panel = h("aside", { id: "panel", "aria-label": "Results" });
  private readonly stage = h("main", { id: "stage" });
  private readonly canvas = h("canvas", {
    class: "model",
    tabindex: 0,
    role: "application",
    "aria-label":
      "The model in 3-D. Arrow keys turn it, with Shift they move it, plus and minus zoom, 0 shows all of it.",
  });
  private readonly hint = h("div", { id: "hint", hidden: true });
  private readonly pin = h("div", { id: "pin", hidden: true });
  private readonly scale = h("div", { id: "scale", "aria-hidden": "true" });
  private readonly hours: HTMLElement[] = [];
  private readonly besideNames: HTMLElement[] = [];
  private readonly said = h("p", { class: "hidden", "aria-live": "polite" });

  private mode: Mode = { kind: "one", result: 0 };
  /// The name of the column that is shown.
  private quantity = "";
  private step = -1;
  private ends: [number | null, number | null] = [null, null];
  private colorSteps = 0;
  private range: [number, number] | null = null;
  private readonly hidden = new Map<string, GroupKey>();
  private isolated: GroupKey | null = null;
  private shown: Uint8Array | null = null;
  /// The results that stand side by side.
  private besides: number[] = [0];
  private difference: { own: Column; other: Column; column: Column } | null = null;
  private pinned: Hit | null = null;
  private section: Section = { axis: "z", place: 0.5, flipped: false };
  private isCut = false;
  private sunOn = false;
  private sunWasOn = false;
  private day = 172;
  private minute = 12 * 60;
  private sunPath: SunPath | null = null;
  private playing = 0;
  private groups!: GroupTable;
  private readonly figures = h("div", { class: "figures" });
  private readonly besideNote = h("p", { class: "quiet", hidden: true });
  private readonly enclosedNote = h("p", { class: "quiet", hidden: true });
  private readonly quantitySelect = h("select", { id: "quantity" });
  private readonly stepField = h("div");
  private readonly stepNote = h("p", { class: "quiet" });
  private readonly cellPlace = h("div");
  private readonly cellSun = h("p", { class: "quiet" });
  private readonly groupPlace = h("div");
  private readonly groupCard = h("details", { hidden: true, open: true }, h("summary", {}, "Group"), this.groupPlace);
  /// Of the cell and of the group; taken down when they are drawn anew.
  private readonly charts = new Map<HTMLElement, uPlot[]>();
  private readonly cellCard = h("details", { hidden: true }, h("summary", {}, "Cell"), this.cellPlace);
  private sunCard: HTMLElement | null = null;
  private sunParts: { day: HTMLInputElement; time: HTMLInputElement; text: HTMLElement; on: HTMLInputElement; play: HTMLButtonElement } | null = null;
  private parallelButton!: HTMLButtonElement;

  constructor(place: HTMLElement) {
    this.stage.append(this.canvas, this.scale, this.pin, this.hint, this.said);
    this.app = h("div", { id: "app" }, this.panel, this.stage);
    place.append(this.app);
    this.view = new View(this.canvas);
    const dim = window.matchMedia("(prefers-color-scheme: dark)");
    const setTheme = (): void => {
      this.view.setTheme(dim.matches ? dark : light);
      this.legend.draw();
    };
    dim.addEventListener("change", setTheme);
    setTheme();
  }

  /// Shows the first result as soon as it is there; the rest of the page follows.
  begin(first: Result): void {
    this.results.push(first);
    this.quantity = this.choices[0].name;
    this.view.add(first);
    this.view.onCamera = () => this.followCamera();
    this.stage.append(this.legend.element);
    this.paint();
    this.view.resize();
    this.view.look(155, 42);
    this.view.drawNow();
  }

  /// The controls, once all results are there.
  complete(rest: Result[]): void {
    for (const result of rest) {
      this.results.push(result);
      this.view.add(result);
    }
    this.besides = comparable(this.results, 4);
    const first = this.results[0];
    const { record } = first;
    document.title = `${record.name} – solar radiation`;
    if (record.site) {
      this.sunPath = new SunPath(record.site, first.floats("sunDeclination"), first.floats("sunEquation"));
    }
    this.groups = new GroupTable(first.hasObjects && record.names.length > 0);
    this.build();
    this.toolbar();
    this.keyboard();
    this.pointer();
    new ResizeObserver(() => {
      this.view.resize();
      this.legend.draw();
    }).observe(this.stage);
    this.legend.onEnds = (low, high) => {
      this.ends = [low, high];
      this.paint();
    };
    this.legend.onRange = (range) => {
      this.range = range;
      this.paint();
    };
    this.refresh();
    this.view.resize();
    this.followCamera();
  }

  // What is shown

  private get first(): Result {
    return this.results[this.mode.kind === "one" ? this.mode.result : 0];
  }

  /// What the picture is of.
  private get compared(): Result[] {
    return this.mode.kind === "difference"
      ? [this.results[0], this.results[this.mode.with]]
      : this.shownModels().map((number) => this.results[number]);
  }

  /// The columns that a reader chooses from: those of all that is compared.
  private get choices(): ColumnRecord[] {
    return sharedColumns(this.compared);
  }

  private columnOf(result: Result): Column | null {
    if (this.step >= 0) {
      return this.step < result.record.steps.length ? result.column("step", this.step) : null;
    }
    return result.columnNamed(this.quantity);
  }

  /// What the model on the left, or the only one, shows.
  get column(): Column {
    const own = this.columnOf(this.first);
    if (!own) {
      throw new Error("the result has no such column");
    }
    if (this.mode.kind === "difference") {
      const other = this.columnOf(this.results[this.mode.with]);
      if (!other) {
        throw new Error("the other result has no such column");
      }
      if (this.difference?.own !== own || this.difference.other !== other) {
        this.difference = { own, other, column: differenceOf(own, other) };
      }
      return this.difference.column;
    }
    return own;
  }

  private scaleOf(column: Column): Scale {
    const [low, high] = this.commonEnds(column);
    return {
      lowest: this.ends[0] ?? low,
      highest: this.ends[1] ?? high,
      steps: column.unit === "0 or 1" ? 2 : this.colorSteps,
      scheme: column.diverging ? "diverging" : "sequential",
    };
  }

  /// Of all results and steps that are shown together.
  private commonEnds(column: Column): [number, number] {
    if (column.unit === "0 or 1") {
      return [0, 1];
    }
    const all =
      this.mode.kind === "difference"
        ? [column.ends]
        : this.step >= 0
          ? this.results.filter((result) => shareSteps([this.first, result])).map(({ record }) => record.step_ends)
          : this.results
              .map((result) => this.columnOf(result))
              .filter((own) => own?.unit === column.unit)
              .map((own) => own!.ends);
    const low = Math.min(...all.map((ends) => ends[0]));
    const high = Math.max(...all.map((ends) => ends[1]));
    if (column.diverging) {
      const most = Math.max(Math.abs(low), Math.abs(high)) || 1;
      return [-most, most];
    }
    return high > low ? [low, high] : [low - 0.5, low + 0.5];
  }

  /// Colours and legend; the groups stay as they are.
  private paint(): void {
    const column = this.column;
    const scale = this.scaleOf(column);
    const colors = colorTexture(scale.scheme);
    const models = this.shownModels();
    models.forEach((number) => {
      const model = this.view.models[number];
      const own = this.mode.kind === "difference" ? column : this.columnOf(this.results[number]);
      const { count } = this.results[number].cells;
      const shown = own ?? new Column("", "", "", 1, 0, 0, new Uint16Array(count).fill(0xffff)); // no such quantity
      if (model.column !== shown) {
        model.showColumn(shown);
      }
      model.paint(scale, colors, this.range);
    });
    const areas = histogram(this.first.cells, column, scale.lowest, scale.highest, Legend.bins, this.shown);
    this.legend.show(this.legendContent(column, scale, areas));
    this.view.draw();
  }

  private legendContent(column: Column, scale: Scale, areas: LegendContent["histogram"]): LegendContent {
    return {
      title: this.columnTitle(column),
      unit: text.unitText(column.unit),
      label: text.isNumber(column.unit) ? null : (value) => column.text(value),
      scale,
      step: column.step,
      histogram: areas,
      range: this.range,
      hasOwnEnds: this.ends[0] !== null || this.ends[1] !== null,
      filterText: this.filterText(column),
    };
  }

  private columnTitle(column: Column): string {
    const { mode } = this;
    return mode.kind === "difference"
      ? `${column.title.replace(/, difference$/, "")}: ${this.results[mode.with].record.name.slice(0, 40)} less ${this.results[0].record.name.slice(0, 40)}`
      : column.title;
  }

  private filterText(column: Column): string {
    if (!this.range) {
      return "";
    }
    const [from, to] = this.range;
    const { cells } = this.first;
    const within = areaWithin(cells, column, from, to, this.shown);
    const unit = text.unitText(column.unit);
    const isNumber = text.isNumber(column.unit);
    const much = cells.hasAreas ? `${text.numberText(within.area, 4)} m²` : `${within.cells} points`;
    const end = (value: number): string => (isNumber ? text.numberText(value, 3) : column.text(value));
    if (to === Infinity) {
      return `${much} above ${end(from)} ${unit}`;
    }
    if (from === -Infinity) {
      return `${much} below ${end(to)} ${unit}`;
    }
    return `${much} between ${end(from)} and ${end(to)} ${unit}`;
  }

  private shownModels(): number[] {
    if (this.mode.kind === "beside") {
      return this.besides;
    }
    return [this.mode.kind === "one" ? this.mode.result : 0];
  }

  private isHiddenKey(key: GroupKey): boolean {
    return this.hidden.has(`${key.kind}:${key.name}`);
  }

  /// Which cells are hidden or muted, then everything that depends on it.
  private refresh(): void {
    this.view.models.forEach((model, number) => {
      const result = this.results[number];
      const state = new Uint8Array(result.cells.count);
      const mark = (key: GroupKey, value: number, others: boolean): void => {
        const { names, of } = groupNumbers(result, key.kind);
        const wanted = names.map((name) => name === key.name);
        for (let i = 0; i < state.length; ++i) {
          if (wanted[of[i]] !== others) {
            state[i] |= value;
          }
        }
      };
      for (const key of this.hidden.values()) {
        mark(key, 1, false);
      }
      if (this.isolated) {
        mark(this.isolated, 2, true);
      }
      model.setStates(
        state,
        (object, material) =>
          this.isHiddenKey({ kind: "object", name: result.name(object) }) ||
          this.isHiddenKey({ kind: "material", name: result.name(material) }),
      );
      if (result === this.first) {
        const any = this.hidden.size > 0 || this.isolated !== null;
        this.shown = any ? state.map((value) => (value === 0 ? 1 : 0)) : null;
      }
    });
    this.showValues();
  }

  /// Colours, groups, figures and the pinned cell, of the cells that are marked already.
  private showValues(): void {
    this.paint();
    const column = this.column;
    this.groups.show(this.first, column, (key) => this.isHiddenKey(key));
    this.showFigures(column);
    this.showGroup(column);
    this.showPinned();
  }

  private showFigures(column: Column): void {
    const { cells } = this.first;
    const [sums] = sumsBy(cells, column, null, 1, this.shown);
    const unit = text.unitText(column.unit);
    const energy = text.energyUnit(sums.whole);
    const figure = (value: string, label: string): HTMLElement => h("div", {}, h("b", {}, value), h("span", {}, label));
    const isAnswer = column.unit === "0 or 1";
    this.figures.replaceChildren(
      figure(text.meanText(sums.mean, column.unit), isAnswer ? (cells.hasAreas ? "of the area" : "of the points") : `mean${unit ? `, ${unit}` : ""}`),
      figure(text.numberText(sums.area, 5).replace(/\.\d+$/, ""), cells.hasAreas ? "m²" : "points"),
      column.unit === "kWh/m2" && cells.hasAreas
        ? figure(text.numberText(sums.whole * energy.factor), `${energy.unit} in all`)
        : isAnswer
          ? ""
          : figure(sums.cells > 0 ? this.spanText(column, sums.lowest, sums.highest) : "–", "range"),
    );
    const enclosed = this.first.enclosed?.reduce((sum, own) => sum + own, 0) ?? 0;
    this.besideNote.hidden = this.mode.kind !== "beside";
    this.besideNote.textContent = `Figures, groups and the bar's areas are those of ${this.first.record.name.slice(0, 80)}.`;
    this.enclosedNote.hidden = enclosed === 0;
    this.enclosedNote.textContent = `${text.fixedText(enclosed, 0)} enclosed ${enclosed === 1 ? "cell is" : "cells are"} grey and left out of all sums.`;
  }

  private spanText(column: Column, low: number, high: number): string {
    const one = (value: number): string => (text.isNumber(column.unit) ? text.numberText(value, 3) : column.text(value));
    return `${one(low)}–${one(high)}`;
  }

  // The panel

  private build(): void {
    const { record } = this.results[0];
    const fact = (label: string): string => record.facts.find((pair) => pair[0] === label)?.[1] ?? "";
    const grip = h("button", {
      id: "grip",
      type: "button",
      "aria-label": "Make the panel smaller or larger",
      click: () => {
        this.app.classList.toggle("low");
      },
    });
    this.quantitySelect.addEventListener("change", () => {
      this.quantity = this.quantitySelect.value;
      this.step = -1;
      this.ends = [null, null];
      this.range = null;
      this.buildSteps();
      this.showValues();
    });
    this.buildQuantities();
    this.groups.onChoose = (key) => {
      this.isolated = key;
      this.refresh();
    };
    this.groups.onHide = (key, hidden) => {
      if (hidden) {
        this.hidden.set(`${key.kind}:${key.name}`, key);
      } else {
        this.hidden.delete(`${key.kind}:${key.name}`);
      }
      this.refresh();
    };
    this.groups.onKind = () => this.refresh();
    this.panel.append(
      grip,
      h("h1", { title: record.name.slice(0, 300) }, h("bdi", {}, record.name.slice(0, 300) || "Results")),
      h("p", { class: "sub" }, h("bdi", {}, [fact("Site"), fact("Period") || fact("Year")].filter(Boolean).join(" · "))),
      this.results.length > 1 ? this.resultSwitch() : "",
      h("label", { class: "field", for: "quantity" }, "Show"),
      this.quantitySelect,
      this.stepField,
      this.figures,
      this.besideNote,
      this.enclosedNote,
      this.cellCard,
      this.groupCard,
      h("details", { open: true }, h("summary", {}, "Groups"), this.groups.element),
      this.sunPath ? this.buildSun() : "",
      this.buildSection(),
      this.buildLook(),
      this.buildFacts(),
    );
  }

  private resultSwitch(): HTMLElement {
    const modes: [Mode, string][] = this.results.map((result, i) => [{ kind: "one", result: i }, result.record.name]);
    const notes: string[] = [];
    if (this.besides.length > 1) {
      modes.push([{ kind: "beside" }, "Side by side"]);
      if (this.besides.length < this.results.length) {
        const names = this.besides.map((i) => this.results[i].record.name.slice(0, 80)).join(", ");
        notes.push(`Side by side stand the first that have a quantity in common, at most four: ${names}.`);
      }
    }
    const [first, ...others] = this.results;
    others.forEach((other, i) => {
      const name = other.record.name.slice(0, 80);
      if (sharedColumns([first, other]).length === 0) {
        notes.push(`No difference with ${name}: it has no quantity in common with the first result.`);
      } else if (!sameCells(first, other)) {
        notes.push(`No difference with ${name}: its cells are not those of the first result.`);
      } else {
        modes.push([{ kind: "difference", with: i + 1 }, others.length === 1 ? "Difference" : `Difference ${name}`]);
      }
    });
    const group = h("div", { class: "switch", role: "group", "aria-label": "Result" });
    modes.forEach(([mode, label], i) => {
      group.append(
        h(
          "button",
          {
            type: "button",
            title: label.slice(0, 300),
            "aria-pressed": i === 0 ? "true" : "false",
            click: (event: MouseEvent) => {
              for (const button of group.children) {
                button.setAttribute("aria-pressed", button === event.currentTarget ? "true" : "false");
              }
              this.setMode(mode);
            },
          },
          h("bdi", {}, label.slice(0, 80)),
        ),
      );
    });
    return h("div", {}, group, ...notes.map((note) => h("p", { class: "quiet" }, h("bdi", {}, note))));
  }

  private setMode(mode: Mode): void {
    this.stopPlaying();
    const isOther = (mode.kind === "beside") !== (this.mode.kind === "beside");
    this.mode = mode;
    this.movePin();
    this.buildQuantities();
    this.ends = [null, null];
    this.range = null;
    this.view.show(this.shownModels());
    if (isOther) {
      // Each picture is narrower or wider than before.
      const { azimuth, altitude } = this.view.bearing();
      this.view.look(azimuth, altitude);
    }
    for (const label of this.besideNames.splice(0)) {
      label.remove();
    }
    if (mode.kind === "beside") {
      const shown = this.shownModels();
      shown.forEach((number, i) => {
        const label = h("div", { class: "beside" }, h("bdi", {}, this.results[number].record.name.slice(0, 80)));
        label.style.left = `${(100 * (i + 0.5)) / shown.length}%`;
        this.besideNames.push(label);
        this.stage.append(label);
      });
    }
    this.refresh();
  }

  /// A cell stays pinned in another result of the same cells; else it is let go.
  private movePin(): void {
    const [number, ...rest] = this.shownModels();
    const model = this.view.models[number];
    if (this.pinned && ![number, ...rest].some((i) => this.view.models[i] === this.pinned?.model)) {
      const { sensor } = this.pinned;
      this.pinned = sameCells(this.pinned.model.result, model.result) ? { model, sensor } : null;
    }
  }

  /// What can be shown of that which is compared; another quantity where it has not got the one shown.
  private buildQuantities(): void {
    const { choices } = this;
    this.quantitySelect.replaceChildren(...choices.map(({ name, title }) => h("option", { value: name }, title)));
    if (!choices.some(({ name }) => name === this.quantity)) {
      this.quantity = choices[0].name;
      this.step = -1;
    }
    this.quantitySelect.value = this.quantity;
    this.buildSteps();
  }

  /// The slider through the steps of the period, where all that is compared has the same ones. They are
  /// of the first quantity.
  private buildSteps(): void {
    if (this.stepField.querySelector("[aria-pressed=true]")) {
      this.stopPlaying();
    }
    const { compared } = this;
    const { steps, columns } = compared[0].record;
    const areOfIt = compared.every(({ record }) => record.columns[0].name === this.quantity);
    if (steps.length === 0 || !areOfIt || !shareSteps(compared)) {
      this.step = -1;
      this.stepField.replaceChildren();
      return;
    }
    const whole = "Whole period";
    const name = h("span", {}, this.step < 0 ? whole : text.partText(steps[this.step].title));
    const slider = h("input", {
      type: "range",
      min: 0,
      max: steps.length,
      step: 1,
      value: this.step + 1,
      "aria-label": `Part of the period, ${columns[0].title}`,
    });
    const go = (value: number): void => {
      if ((value === 0) !== this.step < 0) {
        // Sums of the whole period are of another size than those of its parts, which share their ends.
        this.ends = [null, null];
        this.range = null;
      }
      slider.value = String(value);
      this.step = value - 1;
      name.textContent = value === 0 ? whole : text.partText(steps[value - 1].title);
      slider.setAttribute("aria-valuetext", name.textContent);
      this.showValues();
    };
    slider.addEventListener("input", () => go(Number(slider.value)));
    const left = this.results.reduce((most, { record }) => Math.max(most, record.steps_in_all), 0) - steps.length;
    this.stepNote.hidden = left === 0;
    this.stepNote.textContent = `${steps.length} of ${steps.length + left} parts of the period, to keep the page small.`;
    const play = this.playButton("Play through the period", Math.max(150, Math.min(700, 18000 / steps.length)), () => {
      go(Number(slider.value) >= steps.length ? 1 : Number(slider.value) + 1);
    });
    this.stepField.replaceChildren(
      h("div", { class: "clock" }, name),
      h("div", { class: "row" }, play, h("div", { class: "grow" }, slider)),
      this.stepNote,
    );
  }

  private playButton(label: string, pause: number, go: () => void): HTMLButtonElement {
    const start = "M8 5.500v13l11-6.500z";
    const button = h("button", { type: "button", class: "solid", title: label, "aria-label": label, "aria-pressed": "false" }, icon(start));
    button.addEventListener("click", () => {
      const wasPlaying = button.getAttribute("aria-pressed") === "true";
      this.stopPlaying();
      if (!wasPlaying) {
        button.setAttribute("aria-pressed", "true");
        button.replaceChildren(icon("M8.500 6v12M15.500 6v12"));
        this.playing = window.setInterval(go, pause);
        this.onStopPlaying = () => {
          button.setAttribute("aria-pressed", "false");
          button.replaceChildren(icon(start));
        };
        go();
      }
    });
    return button;
  }
  private onStopPlaying: () => void = () => undefined;
  private stopPlaying(): void {
    window.clearInterval(this.playing);
    this.onStopPlaying();
    this.onStopPlaying = () => undefined;
  }

  private buildSun(): HTMLElement {
    const day = h("input", { type: "range", min: 1, max: 365, value: this.day, "aria-label": "Date" });
    const time = h("input", { type: "range", min: 0, max: 1435, step: 5, value: this.minute, "aria-label": "Time of day" });
    const on = h("input", { type: "checkbox" });
    const words = h("p", { class: "quiet" });
    const play = this.playButton("Play through the day", 120, () => {
      const times = this.sunPath?.times(this.day) ?? { rise: 0, set: 1440 };
      const next = this.minute + 10;
      this.minute = next > times.set || next < times.rise ? Math.ceil(times.rise / 5) * 5 : next;
      this.sunOn = true;
      this.showSun();
    });
    on.addEventListener("change", () => {
      this.sunOn = on.checked;
      if (!on.checked) {
        this.stopPlaying();
      }
      this.showSun();
    });
    const move = (): void => {
      this.day = Number(day.value);
      this.minute = Number(time.value);
      this.sunOn = true;
      this.showSun();
    };
    day.addEventListener("input", move);
    time.addEventListener("input", move);
    this.sunParts = { day, time, text: words, on, play };
    const dayText = h("b");
    const timeText = h("b");
    const card = h(
      "details",
      { open: true },
      h("summary", {}, "Sun and shadows"),
      h("label", {}, on, "Show at a moment"),
      h("div", { class: "clock" }, dayText, h("span", {}, "date")),
      day,
      h("div", { class: "clock" }, timeText, h("span", {}, "clock of the site, no summer time")),
      h("div", { class: "row" }, play, h("div", { class: "grow" }, time)),
      words,
    );
    this.updateSunText = () => {
      dayText.textContent = text.dayText(this.day);
      timeText.textContent = text.timeText(this.minute);
      day.setAttribute("aria-valuetext", dayText.textContent);
      time.setAttribute("aria-valuetext", timeText.textContent);
    };
    this.sunCard = card;
    this.showSun();
    return card;
  }
  private updateSunText: () => void = () => undefined;

  private showSun(): void {
    if (!this.sunPath || !this.sunParts) {
      return;
    }
    const path = this.sunPath;
    const parts = this.sunParts;
    parts.on.checked = this.sunOn;
    parts.day.value = String(this.day);
    parts.time.value = String(this.minute);
    this.updateSunText();
    const sun = path.at(this.day, this.minute);
    const times = path.times(this.day);
    const where =
      sun.altitude > -0.27
        ? `Sun ${sun.altitude.toFixed(1)}° high, in the ${text.bearingText(sun.azimuth)} (${sun.azimuth.toFixed(0)}°).`
        : "The sun is down.";
    parts.text.textContent = times
      ? `${where} Up from ${text.timeText(times.rise)} to ${text.timeText(times.set)}.`
      : where;
    for (const hour of this.hours.splice(0)) {
      hour.remove();
    }
    if (!this.sunOn) {
      this.sunWasOn = false;
      this.view.setSun(null, [], []);
      this.showCellSun();
      return;
    }
    const course = Array.from({ length: 145 }, (_, i) => path.at(this.day, 10 * i));
    const marks = Array.from({ length: 25 }, (_, hour) => ({ hour, sun: path.at(this.day, 60 * hour) })).filter(
      (mark) => mark.sun.altitude > 0,
    );
    for (const mark of marks) {
      if (mark.hour % 3 === 0) {
        const label = h("div", { class: "hour" }, `${mark.hour}`);
        label.dataset.altitude = String(mark.sun.altitude);
        label.dataset.azimuth = String(mark.sun.azimuth);
        this.hours.push(label);
        this.stage.append(label);
      }
    }
    this.view.setSun(sun, course, marks);
    if (!this.sunWasOn) {
      // From higher up one looks along the plane of the path, at mid-latitudes, and sees a line.
      const { azimuth, altitude } = this.view.bearing();
      this.view.look(azimuth, Math.min(altitude, 28), this.view.domeBox(course));
    }
    this.sunWasOn = true;
    this.followCamera();
    this.showCellSun();
  }

  /// Shows the shadows of a moment.
  setMoment(day: number, minute: number): void {
    this.day = day;
    this.minute = minute;
    this.sunOn = true;
    this.sunCard?.setAttribute("open", "");
    this.showSun();
  }

  private buildSection(): HTMLElement {
    const axis = h(
      "select",
      { "aria-label": "Section plane" },
      h("option", { value: "" }, "None"),
      h("option", { value: "z" }, "Cut off above a height"),
      h("option", { value: "y" }, "Cut off beyond a place on Y"),
      h("option", { value: "x" }, "Cut off beyond a place on X"),
    );
    const place = h("input", { type: "range", min: 0, max: 1, step: 0.002, value: 0.5, "aria-label": "Place of the section" });
    const flip = h("input", { type: "checkbox" });
    const words = h("span");
    const rest = h(
      "div",
      { hidden: true },
      place,
      h("div", { class: "clock" }, h("label", {}, flip, "the other half"), words),
    );
    const update = (): void => {
      this.isCut = axis.value !== "";
      rest.hidden = !this.isCut;
      if (this.isCut) {
        this.section = { axis: axis.value as Section["axis"], place: Number(place.value), flipped: flip.checked };
        const at = this.view.sectionPlace(this.section);
        words.textContent = `${at.toFixed(1)} m`;
        place.setAttribute("aria-valuetext", words.textContent);
      }
      this.view.setSection(this.isCut ? this.section : null);
    };
    for (const input of [axis, place, flip]) {
      input.addEventListener("input", update);
    }
    return h("details", {}, h("summary", {}, "Section"), axis, rest);
  }

  private buildLook(): HTMLElement {
    const around = h(
      "select",
      { id: "around" },
      h("option", { value: "solid" }, "solid"),
      h("option", { value: "lines" }, "as lines"),
      h("option", { value: "none" }, "hidden"),
    );
    around.addEventListener("change", () => {
      for (const model of this.view.models) {
        model.showSurroundings(around.value as "solid" | "lines" | "none");
      }
      this.view.draw();
    });
    const steps = h("select", { id: "steps" }, h("option", { value: 0 }, "without steps"));
    for (const count of [5, 6, 8, 10, 12]) {
      steps.append(h("option", { value: count }, `in ${count} steps`));
    }
    steps.addEventListener("change", () => {
      this.colorSteps = Number(steps.value);
      this.paint();
    });
    return h(
      "details",
      {},
      h("summary", {}, "Appearance"),
      h("label", { class: "field", for: "around" }, "Surroundings"),
      around,
      h("label", { class: "field", for: "steps" }, "Colours"),
      steps,
    );
  }

  private buildFacts(): HTMLElement {
    const key = (name: string, what: string): HTMLElement[] => [h("dt", {}, h("kbd", {}, name)), h("dd", {}, what)];
    const warnings = this.results.reduce((sum, { record }) => sum + record.warnings.length, 0);
    const about = h(
      "details",
      {},
      h("summary", {}, "About this study", warnings > 0 && h("span", { class: "badge" }, `${warnings} ${warnings === 1 ? "warning" : "warnings"}`)),
    );
    this.results.forEach((result) => {
      const { record } = result;
      if (this.results.length > 1) {
        about.append(h("p", { class: "caption" }, h("bdi", {}, record.name.slice(0, 200))));
      }
      about.append(
        h("dl", {}, ...record.facts.flatMap(([label, words]) => [h("dt", {}, label), h("dd", {}, h("bdi", {}, words))])),
        ...record.warnings.map((words) => h("p", { class: "warn" }, words)),
        record.left_out && h("p", { class: "quiet" }, `To keep the page small, ${record.left_out}.`),
      );
    });
    about.append(
      h("p", { class: "caption" }, "Keyboard"),
      h(
        "dl",
        {},
        ...key("arrows", "turn; with Shift move"),
        ...key("+ −", "zoom"),
        ...key("0", "the whole model"),
        ...key("F", "fit to what is chosen"),
        ...key("T N E S W", "from above, from a side"),
        ...key("P", "perspective or parallel"),
        ...key("Esc", "let go of the cell, the group, the filter"),
      ),
      h(
        "details",
        {},
        h("summary", {}, "Licences"),
        h("p", { class: "quiet" }, "The script of this page holds these libraries:"),
        h("pre", {}, licences),
      ),
    );
    return about;
  }

  // Over the picture

  private toolbar(): void {
    const button = (label: string, content: string | SVGSVGElement, run: () => void): HTMLButtonElement =>
      h("button", { type: "button", title: label, "aria-label": label, click: run }, content);
    this.parallelButton = button("Parallel projection (P)", icon("M4 8l8-4 8 4v8l-8 4-8-4zM4 8l8 4 8-4M12 12v8"), () => this.toggleParallel());
    this.parallelButton.setAttribute("aria-pressed", "false");
    this.stage.append(
      h(
        "div",
        { id: "bar", role: "toolbar", "aria-label": "View" },
        button("The whole model (0)", icon("M4 9V4h5M15 4h5v5M20 15v5h-5M9 20H4v-5"), () => this.view.look(155, 42)),
        button("Fit to what is chosen (F)", icon("M12 3v3M12 18v3M3 12h3M18 12h3M12 8.500a3.500 3.500 0 1 1 0 7 3.500 3.500 0 0 1 0-7z"), () => this.fit()),
        h("i"),
        button("Top, from above (T)", "Top", () => this.view.look(180, 90)),
        button("From the north (N)", "N", () => this.view.look(0, 0)),
        button("From the east (E)", "E", () => this.view.look(90, 0)),
        button("From the south (S)", "S", () => this.view.look(180, 0)),
        button("From the west (W)", "W", () => this.view.look(270, 0)),
        this.parallelButton,
        h("i", {}),
        button("Save the picture as PNG", icon("M4 7h3l1.500-2h7L17 7h3v12H4zM12 9.500a3.500 3.500 0 1 1 0 7 3.500 3.500 0 0 1 0-7z"), () => void this.savePicture()),
        button("Save the cells in view as CSV", icon("M12 4v11M7.500 11l4.500 4.500 4.500-4.500M4.500 19.500h15"), () => this.saveTable()),
      ),
    );
  }

  private toggleParallel(): void {
    this.view.setParallel(!this.view.isParallel);
    this.parallelButton.setAttribute("aria-pressed", String(this.view.isParallel));
  }

  /// Brings what is chosen, filtered or pinned to the middle.
  private fit(): void {
    const number = this.shownModels()[0];
    const model = this.view.models[number];
    const { azimuth, altitude } = this.view.bearing();
    const column = this.column;
    const range = this.range;
    const only = this.pinned && !this.isolated && !range && !this.shown ? this.pinned.sensor : null;
    const box = model.boxOf((sensor) => {
      if (only !== null) {
        return sensor === only;
      }
      const value = column.at(sensor);
      return (!this.shown || this.shown[sensor] === 1) && (!range || (value >= range[0] && value <= range[1]));
    });
    if (only !== null) {
      box.expandByScalar(6);
    }
    this.view.look(azimuth, altitude, box);
  }

  private keyboard(): void {
    window.addEventListener("keydown", (event) => {
      const target = event.target as HTMLElement;
      if (event.ctrlKey || event.metaKey || event.altKey || /^(INPUT|SELECT|TEXTAREA)$/.test(target.tagName)) {
        return;
      }
      if (event.key === "Escape") {
        this.range = null;
        this.isolated = null;
        this.pinned = null;
        this.groups.choose(null);
        this.refresh();
        return;
      }
      const onModel = target === this.canvas || target === document.body;
      const arrows: Record<string, [number, number]> = {
        ArrowLeft: [-1, 0], ArrowRight: [1, 0], ArrowUp: [0, 1], ArrowDown: [0, -1],
      };
      const arrow = arrows[event.key];
      if (arrow && onModel) {
        event.preventDefault();
        if (event.shiftKey) {
          this.view.pan(0.06 * arrow[0], 0.06 * arrow[1]);
        } else {
          this.view.orbit(-8 * arrow[0], 6 * arrow[1]);
        }
        return;
      }
      const sides: Record<string, [number, number]> = {
        t: [180, 90], n: [0, 0], e: [90, 0], s: [180, 0], w: [270, 0], "0": [155, 42], Home: [155, 42],
      };
      const side = sides[event.key.length === 1 ? event.key.toLowerCase() : event.key];
      if (side) {
        this.view.look(side[0], side[1]);
      } else if (event.key === "+" || event.key === "=") {
        this.view.zoom(0.85);
      } else if (event.key === "-") {
        this.view.zoom(1 / 0.85);
      } else if (event.key.toLowerCase() === "f") {
        this.fit();
      } else if (event.key.toLowerCase() === "p") {
        this.toggleParallel();
      }
    });
  }

  private pointer(): void {
    let at: { x: number; y: number } | null = null;
    let asked = false;
    let pressed: { x: number; y: number } | null = null;
    this.canvas.addEventListener("pointermove", (event) => {
      if (event.buttons !== 0 || event.pointerType === "touch") {
        this.hint.hidden = true;
        return;
      }
      at = { x: event.offsetX, y: event.offsetY };
      if (!asked) {
        asked = true;
        requestAnimationFrame(() => {
          asked = false;
          if (at) {
            this.showHint(at.x, at.y);
          }
        });
      }
    });
    this.canvas.addEventListener("pointerleave", () => {
      at = null;
      this.hint.hidden = true;
    });
    this.canvas.addEventListener("pointerdown", (event) => {
      pressed = { x: event.offsetX, y: event.offsetY };
    });
    this.canvas.addEventListener("pointerup", (event) => {
      if (pressed && Math.hypot(event.offsetX - pressed.x, event.offsetY - pressed.y) < 5) {
        this.pinned = this.view.pick(event.offsetX, event.offsetY);
        this.cellCard.open = true;
        this.showPinned();
        if (this.pinned && this.app.clientWidth <= 760) {
          this.app.classList.remove("low");
          this.panel.scrollTop = 0;
        }
      }
      pressed = null;
    });
    this.canvas.addEventListener("dblclick", () => this.fit());
  }

  /// What is known of a cell, as lines for people.
  describe(hit: Hit): { value: string; unit: string; lines: string[] } {
    const { model, sensor } = hit;
    const result = model.result;
    const column = model.column ?? this.column;
    const lines: string[] = [];
    const object = groupName(result, "object", sensor);
    const material = groupName(result, "material", sensor);
    if (object || material) {
      lines.push([object, material].filter(Boolean).map((name) => name.slice(0, 120)).join(" · "));
    }
    const place = [this.orientation(result, sensor), this.areaText(result, sensor)].filter(Boolean).join(", ");
    if (place) {
      lines.push(place);
    }
    const peak = this.peakText(result, sensor);
    if (peak) {
      lines.push(peak);
    }
    if (this.isEnclosed(hit)) {
      return { value: "enclosed", unit: "", lines };
    }
    const others = this.othersOf(hit);
    lines.push(...others.map(([name, value]) => `${name}: ${value}`));
    return { value: column.text(column.at(sensor)), unit: text.unitText(column.unit), lines };
  }

  private isEnclosed({ model, sensor }: Hit): boolean {
    return model.result.enclosed?.[sensor] === 1;
  }

  /// The same cell in all results, where several of the same cells are compared: name and value.
  private othersOf({ model, sensor }: Hit): [string, string][] {
    const { compared } = this;
    if (compared.length < 2 || !compared.every((result) => sameCells(compared[0], result))) {
      return [];
    }
    return compared.flatMap((result): [string, string][] => {
      const column = this.columnOf(result);
      return column && (this.mode.kind === "difference" || result !== model.result)
        ? [[result.record.name.slice(0, 60), `${column.text(column.at(sensor))} ${text.unitText(column.unit)}`]]
        : [];
    });
  }

  /// Empty where a point has no normal.
  private orientation(result: Result, sensor: number): string {
    if (result.cells.side[sensor] === noSide) {
      return "";
    }
    const [x, y, z] = normalOf(cornersOf(result.cells, sensor));
    const tilt = (Math.acos(Math.min(Math.max(z, -1), 1)) * 180) / Math.PI;
    if (tilt < 1) {
      return "level, faces up";
    }
    if (tilt > 179) {
      return "level, faces down";
    }
    const azimuth = (Math.atan2(x, y) * 180) / Math.PI - result.record.north;
    return `faces ${text.bearingText(azimuth)}, tilt ${tilt.toFixed(0)}°`;
  }

  private areaText(result: Result, sensor: number): string {
    return result.cells.hasAreas ? `${text.numberText(result.cells.area[sensor], 2)} m²` : "";
  }

  private peakText(result: Result, sensor: number): string {
    const peak = result.columnNamed("peak");
    const hour = result.columnNamed("peak_hour");
    if (!peak || !Number.isFinite(peak.at(sensor))) {
      return "";
    }
    const when = hour && hour.at(sensor) > 0 ? ` on ${text.hourOfYearText(hour.at(sensor))}` : "";
    return `peak ${peak.text(peak.at(sensor))} ${text.unitText(peak.unit)}${when}`;
  }

  private showHint(x: number, y: number): void {
    const hit = this.view.pick(x, y);
    this.hint.hidden = hit === null;
    if (!hit) {
      return;
    }
    const { value, unit, lines } = this.describe(hit);
    this.hint.replaceChildren(
      h("b", {}, value),
      ` ${unit}`,
      ...lines.map((line) => h("span", {}, h("bdi", {}, line))),
    );
    const { clientWidth, clientHeight } = this.stage;
    const wide = this.hint.offsetWidth;
    const tall = this.hint.offsetHeight;
    this.hint.style.left = `${x + 16 + wide > clientWidth ? x - wide - 12 : x + 16}px`;
    this.hint.style.top = `${Math.min(Math.max(y + 14, 4), clientHeight - tall - 4)}px`;
  }

  private showPinned(): void {
    for (const model of this.view.models) {
      model.mark(this.pinned && this.pinned.model === model ? this.pinned.sensor : null);
    }
    this.cellCard.hidden = this.pinned === null;
    this.followCamera();
    this.view.draw();
    if (!this.pinned) {
      return;
    }
    const { model, sensor } = this.pinned;
    const result = model.result;
    const { value, unit } = this.describe(this.pinned);
    this.said.textContent = `${value} ${unit}`;
    const rows: [string, string][] = this.othersOf(this.pinned);
    const enclosed = this.isEnclosed(this.pinned);
    if (!enclosed) {
      result.record.columns.forEach((record, i) => {
        if (record.unit !== "hour of year") {
          const column = result.column("column", i);
          rows.push([record.title, `${column.text(column.at(sensor))} ${text.unitText(record.unit)}`]);
        }
      });
    }
    const object = groupName(result, "object", sensor);
    const material = groupName(result, "material", sensor);
    if (object) {
      rows.push(["Object", object.slice(0, 300)]);
    }
    if (material) {
      rows.push(["Material", material.slice(0, 300)]);
    }
    const orientation = this.orientation(result, sensor);
    if (orientation) {
      rows.push(["Orientation", orientation]);
    }
    if (result.cells.hasAreas) {
      rows.push(["Area", this.areaText(result, sensor)]);
    }
    rows.push(["Number", `${sensor}, as in sensors.csv`]);
    const hour = result.columnNamed("peak_hour");
    const peakHour = hour ? hour.at(sensor) : NaN;
    this.clearCharts(this.cellPlace);
    this.cellPlace.replaceChildren(
      h("div", { class: "value" }, value, " ", h("small", {}, unit)),
      enclosed
        ? h("p", { class: "quiet" }, "It looks into closed geometry, as inside of a body, and is left out of colours and sums.")
        : "",
      this.cellSun,
      h("dl", {}, ...rows.flatMap(([label, words]) => [h("dt", {}, label), h("dd", {}, h("bdi", {}, words))])),
    );
    this.showCellSun();
    if (peakHour > 0) {
      this.cellPlace.append(
        h("p", { class: "quiet" }, `Peak on ${text.hourOfYearText(peakHour)}.`),
        this.sunPath
          ? h(
              "button",
              {
                type: "button",
                class: "solid",
                click: () => this.setMoment(Math.floor((peakHour - 1) / 24) + 1, ((peakHour - 1) % 24) * 60 + 30),
              },
              "Show the sun of the peak",
            )
          : "",
      );
    }
    this.chartSteps(result, sensor);
    const names: [string, string][] = [
      ["object", object],
      ["material", material],
      ["object,material", `${object}, ${material}`],
    ];
    this.chartHours(
      this.cellPlace,
      result.series.find((one) => one.sensor === sensor) ??
        names.map(([kind, name]) => seriesOf(result, kind, name)).find((one) => one !== undefined) ??
        result.series.find((one) => one.label === "all"),
      result.record.days,
    );
  }

  /// Whether the sun reaches the pinned cell at the moment that is shown.
  private showCellSun(): void {
    this.cellSun.hidden = !this.sunOn || this.pinned === null;
    if (this.pinned && this.sunOn) {
      const isLit = this.view.isLit(this.pinned.model, this.pinned.sensor);
      this.cellSun.textContent = `${isLit ? "In the sun" : "Without sun"} on ${text.dayText(this.day)} at ${text.timeText(this.minute)}.`;
    }
  }

  /// What is known of the group that stands alone, with its hours where the study has them.
  private showGroup(column: Column): void {
    const key = this.isolated;
    this.groupCard.hidden = key === null;
    this.clearCharts(this.groupPlace);
    if (!key) {
      return;
    }
    const { names, of } = groupNumbers(this.first, key.kind);
    const sums = sumsBy(this.first.cells, column, of, names.length)[names.indexOf(key.name)];
    const unit = text.unitText(column.unit);
    const rows: [string, string][] = [
      [this.first.cells.hasAreas ? "Cells" : "Points", text.fixedText(sums.cells, 0)],
      ["Mean", `${text.meanText(sums.mean, column.unit)} ${unit}`],
      ["Range", sums.cells > 0 ? `${this.spanText(column, sums.lowest, sums.highest)} ${unit}` : "–"],
    ];
    this.groupPlace.replaceChildren(
      h("p", { class: "name" }, h("bdi", {}, key.name.slice(0, 300) || "(no name)")),
      h("dl", {}, ...rows.flatMap(([label, words]) => [h("dt", {}, label), h("dd", {}, words)])),
    );
    this.chartHours(this.groupPlace, seriesOf(this.first, key.kind, key.name), this.first.record.days);
  }

  private clearCharts(place: HTMLElement): void {
    for (const plot of this.charts.get(place) ?? []) {
      plot.destroy();
    }
    this.charts.set(place, []);
  }

  private chartSteps(result: Result, sensor: number): void {
    const { steps } = result.record;
    if (steps.length < 2 || this.isEnclosed({ model: this.model, sensor })) {
      return;
    }
    const values = steps.map((_, i) => result.column("step", i).at(sensor));
    const unit = text.unitText(steps[0].unit);
    const place = h("div");
    this.cellPlace.append(h("p", { class: "caption" }, `Through the period, ${unit}`), place);
    const names = steps.map((step) => text.partShort(step.name));
    this.charts.get(this.cellPlace)?.push(
      chart(place, values, { names, unit, width: this.chartWidth(), bars: true, label: "Through the period" }),
    );
  }

  private chartWidth(): number {
    return Math.max(this.panel.clientWidth - 40, 200);
  }

  /// @param days of the period
  private chartHours(card: HTMLElement, series: Series | undefined, days: number): void {
    if (!series) {
      return;
    }
    const whose = series.sensor !== null ? "of the cell" : series.label === "all" ? "of all cells" : `of ${series.label.slice(0, 80)}`;
    const carpet = h("canvas", { class: "carpet", role: "img", "aria-label": `Radiation of each hour of the year ${whose}` });
    const place = h("div");
    card.append(
      h("p", { class: "caption" }, h("bdi", {}, `Every hour of the year ${whose}`), ": hours upwards, months across"),
      carpet,
      h("p", { class: "caption" }, "Mean day, W/m²"),
      place,
    );
    drawCarpet(carpet, series.hours);
    this.charts.get(card)?.push(
      chart(place, meanDay(series.hours, days), { unit: "W/m²", width: this.chartWidth(), bars: false, label: "Mean day" }),
    );
  }

  /// A round length and how many pixels it takes in the middle of the picture.
  private scaleBar(): { words: string; wide: number } {
    const metres = this.view.height;
    const pixels = this.canvas.clientHeight || 1;
    let length = 10 ** Math.floor(Math.log10((metres * 120) / pixels));
    for (const factor of [5, 2]) {
      if ((length * factor * pixels) / metres <= 130) {
        length *= factor;
        break;
      }
    }
    return {
      words: length >= 1000 ? `${length / 1000} km` : `${Number(length.toPrecision(2))} m`,
      wide: (length * pixels) / metres,
    };
  }

  /// North arrow, scale bar and marks stay where they belong.
  private followCamera(): void {
    const { azimuth, altitude } = this.view.bearing();
    const { words, wide } = this.scaleBar();
    const bar = h("div", { class: "length" }, h("span", {}, words));
    bar.style.width = `${wide}px`;
    this.scale.replaceChildren(northArrow(azimuth, altitude), bar);
    const hit = this.pinned;
    const at = hit && (hit.model === this.view.models[this.shownModels()[0]] || this.mode.kind === "beside")
      ? this.view.cellOnScreen(hit.model, hit.sensor)
      : null;
    this.pin.hidden = at === null;
    if (at) {
      this.pin.style.left = `${at.x}px`;
      this.pin.style.top = `${at.y}px`;
    }
    for (const label of this.hours) {
      const sun = { azimuth: Number(label.dataset.azimuth), altitude: Number(label.dataset.altitude) };
      const place = this.view.onDome(sun);
      label.hidden = place === null;
      if (place) {
        label.style.left = `${place.x}px`;
        label.style.top = `${place.y}px`;
      }
    }
  }

  // Files

  /// The picture with title, colours and where it comes from.
  async savePicture(): Promise<void> {
    download(`${fileName(this.first.record.name)}.png`, await this.picture());
  }

  picture(): Promise<Blob> {
    const model = this.view.snapshot();
    const ratio = model.width / Math.max(this.canvas.clientWidth, 1);
    const sheet = document.createElement("canvas");
    sheet.width = model.width;
    sheet.height = model.height;
    const context = sheet.getContext("2d");
    if (!context) {
      return Promise.reject(new Error("no canvas"));
    }
    const style = getComputedStyle(document.documentElement);
    const ink = style.getPropertyValue("--ink");
    context.drawImage(model, 0, 0);
    context.scale(ratio, ratio);
    const width = sheet.width / ratio;
    const height = sheet.height / ratio;
    const column = this.column;
    const scale = this.scaleOf(column);
    const areas = histogram(this.first.cells, column, scale.lowest, scale.highest, Legend.bins, this.shown);
    const line = (words: string, x: number, y: number, size: number, bold = false): void => {
      context.fillStyle = ink;
      context.textAlign = "left";
      context.textBaseline = "alphabetic";
      context.font = `${bold ? "600 " : ""}${size}px system-ui, sans-serif`;
      context.fillText(words, x, y, width - x - 12);
    };
    const { record } = this.first;
    const fact = (label: string): string => record.facts.find((pair) => pair[0] === label)?.[1] ?? "";
    const title = this.mode.kind === "one" ? record.name : this.results.map((result) => result.record.name).join(" / ");
    line(title.slice(0, 120), 18, 32, 20, true);
    line([this.columnTitle(column), text.unitText(column.unit)].filter(Boolean).join(", "), 18, 54, 14);
    const state = [
      this.sunOn ? `shadows of ${text.dayText(this.day)}, ${text.timeText(this.minute)}` : "",
      this.isolated ? this.isolated.name.slice(0, 80) || "(no name)" : "",
      this.filterText(column),
    ];
    line(state.filter(Boolean).join(" · "), 18, 74, 12);
    if (this.mode.kind === "beside") {
      const shown = this.shownModels();
      shown.forEach((number, i) => {
        line(this.results[number].record.name.slice(0, 60), (width * (i + 0.5)) / shown.length - 30, height - 66, 13);
      });
    }
    line([fact("Site"), fact("Period"), fact("Rule"), fact("Method") && `${fact("Method")} method`, fact("Version")].filter(Boolean).join(" · "), 18, height - 14, 11.5);
    this.drawScale(context, 18, height - 40, style);
    context.save();
    context.translate(width - 160, 24);
    const tall = Math.min(240, height - 80);
    drawLegend(context, this.legendContent(column, scale, areas), 144, tall, true);
    context.restore();
    return new Promise((resolve, reject) => {
      sheet.toBlob((blob) => (blob ? resolve(blob) : reject(new Error("the picture is too large"))), "image/png");
    });
  }

  /// North arrow and scale bar, their lower left corner at a place of the picture.
  private drawScale(context: CanvasRenderingContext2D, x: number, y: number, style: CSSStyleDeclaration): void {
    const { azimuth, altitude } = this.view.bearing();
    const { needle, flat, letter } = compass(azimuth, altitude);
    const { words, wide } = this.scaleBar();
    context.save();
    context.translate(x, y - 46);
    context.lineWidth = 1.4;
    context.strokeStyle = style.getPropertyValue("--soft");
    context.beginPath();
    context.ellipse(23, 23, 16, 16 * flat, 0, 0, 2 * Math.PI);
    context.stroke();
    context.fillStyle = style.getPropertyValue("--accent");
    context.beginPath();
    needle.forEach(([px, py]) => context.lineTo(px, py));
    context.fill();
    context.fillStyle = style.getPropertyValue("--ink");
    context.textAlign = "center";
    context.textBaseline = "middle";
    context.font = "600 11px system-ui, sans-serif";
    context.fillText("N", letter[0], letter[1]);
    context.beginPath();
    context.moveTo(64, 39);
    context.lineTo(64, 46);
    context.lineTo(64 + wide, 46);
    context.lineTo(64 + wide, 39);
    context.stroke();
    context.font = "12px system-ui, sans-serif";
    context.fillText(words, 64 + wide / 2, 36);
    context.restore();
  }

  saveTable(): void {
    download(`${fileName(this.first.record.name)}.csv`, new Blob([this.table()], { type: "text/csv" }));
  }

  /// The cells that are shown and within the filter.
  table(): string {
    const result = this.first;
    const { cells, record } = result;
    const shownColumn = this.column;
    const columns = record.columns.map((_, i) => result.column("column", i));
    if (!columns.includes(shownColumn)) {
      columns.push(shownColumn);
    }
    const head = ["sensor", "x [m]", "y [m]", "z [m]", "object", "material", "faces"];
    if (result.enclosed) {
      head.push("enclosed");
    }
    if (cells.hasAreas) {
      head.push("area [m2]");
    }
    head.push(...columns.map((column) => text.csvField(`${column === shownColumn && !record.columns.some((own) => own.title === column.title) ? column.title : column.name} [${column.unit}]`)));
    const lines = [head.join(",")];
    for (let sensor = 0; sensor < cells.count; ++sensor) {
      const value = shownColumn.at(sensor);
      if ((this.shown && this.shown[sensor] === 0) || (this.range && !(value >= this.range[0] && value <= this.range[1]))) {
        continue;
      }
      const corners = cornersOf(cells, sensor);
      const middle = [0, 1, 2].map(
        (k) => record.origin[k] + corners.reduce((sum, corner) => sum + corner[k], 0) / corners.length,
      );
      const fields = [
        String(sensor),
        ...middle.map((v) => v.toFixed(3)),
        text.csvField(groupName(result, "object", sensor)),
        text.csvField(groupName(result, "material", sensor)),
        groupName(result, "side", sensor),
      ];
      if (result.enclosed) {
        fields.push(String(result.enclosed[sensor]));
      }
      if (cells.hasAreas) {
        fields.push(cells.area[sensor].toPrecision(4));
      }
      fields.push(...columns.map((column) => (Number.isFinite(column.at(sensor)) ? column.at(sensor).toFixed(Math.max(0, column.decimals)) : "")));
      lines.push(fields.join(","));
    }
    return `${lines.join("\n")}\n`;
  }

  /// The model that stands in the picture.
  get model(): ModelView {
    return this.view.models[this.shownModels()[0]];
  }
}

/// The hours of a group, as --by names it.
function seriesOf(result: Result, kind: string, name: string): Series | undefined {
  return result.series.find((one) => one.sensor === null && name !== "" && one.label === `${kind} ${name}`);
}

function fileName(name: string): string {
  return name.replace(/[^\p{L}\p{N}._-]+/gu, "-").slice(0, 60) || "results";
}

/// A compass lying on the ground, seen as the model is, on a square of 46 pixels.
function compass(azimuth: number, altitude: number): { needle: [number, number][]; flat: number; letter: [number, number] } {
  const flat = Math.max(Math.abs(Math.sin((altitude * Math.PI) / 180)), 0.12);
  // The viewer stands in the azimuth and looks away from it.
  const turn = ((180 - azimuth) * Math.PI) / 180;
  const at = (angle: number, radius: number): [number, number] => [
    23 + radius * Math.sin(turn + angle),
    23 - flat * radius * Math.cos(turn + angle),
  ];
  const [x, y] = at(0, 22.5);
  return {
    needle: [at(0, 14), at(2.5, 6), at(Math.PI, 2), at(-2.5, 6)],
    flat,
    letter: [x, flat < 0.3 ? y - 6 * Math.sign(Math.cos(turn) || 1) : y],
  };
}

function northArrow(azimuth: number, altitude: number): SVGSVGElement {
  const space = "http://www.w3.org/2000/svg";
  const { needle, flat, letter } = compass(azimuth, altitude);
  const add = (tag: string, attributes: Record<string, string>): Element => {
    const element = document.createElementNS(space, tag);
    for (const [name, value] of Object.entries(attributes)) {
      element.setAttribute(name, value);
    }
    svg.append(element);
    return element;
  };
  const svg = document.createElementNS(space, "svg");
  svg.setAttribute("viewBox", "0 0 46 46");
  add("ellipse", { cx: "23", cy: "23", rx: "16", ry: (16 * flat).toFixed(1), stroke: "var(--soft)" });
  add("path", { d: `M${needle.map((p) => p.map((v) => v.toFixed(1)).join(" ")).join("L")}Z`, fill: "var(--accent)", stroke: "none" });
  add("text", { x: letter[0].toFixed(1), y: letter[1].toFixed(1) }).textContent = "N";
  return svg;
}
