/// The table of groups: cells that share an object, a material or a side.
import { h, icon } from "./dom";
import { energyUnit, meanText, numberText, unitText } from "./format";
import { emptySums, type Sums, sumsBy } from "./histogram";
import { type Column, type Result, sides } from "./packing";

export type GroupKind = "object" | "material" | "side";

/// A group by what it is called: "" is no name.
export interface GroupKey {
  kind: GroupKind;
  name: string;
}

export function groupName(result: Result, kind: GroupKind, sensor: number): string {
  const { cells } = result;
  return kind === "side"
    ? sides[cells.side[sensor]]
    : result.name(kind === "object" ? cells.object[sensor] : cells.material[sensor]);
}

/// Names in the order of their numbers and, by sensor, these numbers.
export function groupNumbers(
  result: Result,
  kind: GroupKind,
): { names: string[]; of: ArrayLike<number> } {
  const { cells } = result;
  if (kind === "side") {
    return { names: [...sides], of: cells.side };
  }
  return {
    names: ["", ...result.record.names],
    of: kind === "object" ? cells.object : cells.material,
  };
}

export interface Group extends Sums {
  name: string;
}

export function groupsOf(result: Result, column: Column, kind: GroupKind): Group[] {
  const { names, of } = groupNumbers(result, kind);
  const sums = sumsBy(result.cells, column, of, names.length);
  const there = new Uint32Array(names.length);
  for (let i = 0; i < result.cells.count; ++i) {
    there[of[i]] += 1;
  }
  return names
    .map((name, i) => ({ ...(sums[i] ?? emptySums()), name }))
    .filter((_, i) => there[i] > 0);
}

/// Whole square metres from a hundred on.
function areaText(area: number): string {
  return area >= 100 ? numberText(Math.round(area), Math.floor(Math.log10(area)) + 1) : numberText(area, 3);
}

type SortKey = "name" | "area" | "mean" | "whole";

export class GroupTable {
  readonly element: HTMLElement;
  onChoose: (group: GroupKey | null) => void = () => undefined;
  onHide: (group: GroupKey, hidden: boolean) => void = () => undefined;
  onKind: () => void = () => undefined;
  kind: GroupKind = "object";
  private groups: Group[] = [];
  private sort: SortKey = "area";
  private isDescending = true;
  private chosen: string | null = null;
  private energy = energyUnit(0);
  private unit = "";
  private isHidden: (key: GroupKey) => boolean = () => false;
  private readonly search = h("input", {
    type: "search",
    placeholder: "Search",
    "aria-label": "Search groups by name",
  });
  private readonly kinds = h("select", { "aria-label": "Group by" });
  private readonly head = h("tr");
  private readonly body = h("tbody");
  private readonly note = h("p", { class: "quiet" });

  constructor(hasNames: boolean) {
    const kinds: [GroupKind, string][] = hasNames
      ? [["object", "Objects"], ["material", "Materials"], ["side", "Orientation"]]
      : [["side", "Orientation"]];
    this.kind = kinds[0][0];
    for (const [kind, label] of kinds) {
      this.kinds.append(h("option", { value: kind }, label));
    }
    this.kinds.addEventListener("change", () => {
      this.kind = this.kinds.value as GroupKind;
      this.chosen = null;
      this.onChoose(null);
      this.onKind();
    });
    this.search.addEventListener("input", () => this.fill());
    this.search.addEventListener("keydown", (event) => {
      if (event.key === "Enter") {
        this.body.querySelector("tr")?.click();
      }
    });
    this.element = h(
      "div",
      {},
      h("div", { class: "row" }, h("div", { class: "grow" }, this.kinds), h("div", { class: "grow" }, this.search)),
      h("div", { class: "table" }, h("table", {}, h("thead", {}, this.head), this.body)),
      this.note,
    );
  }

  choose(name: string | null): void {
    this.chosen = name;
    this.fill();
  }

  show(result: Result, column: Column, isHidden: (key: GroupKey) => boolean): void {
    this.groups = groupsOf(result, column, this.kind);
    this.isHidden = isHidden;
    this.unit = column.unit;
    const isEnergy = column.unit === "kWh/m2" && result.cells.hasAreas;
    const heads: [SortKey, string, string][] = [
      ["name", "Name", ""],
      ["area", result.cells.hasAreas ? "m²" : "points", "Area"],
      ["mean", "mean", `Mean by area, ${unitText(column.unit)}`],
    ];
    if (isEnergy) {
      this.energy = energyUnit(this.groups.reduce((most, group) => Math.max(most, Math.abs(group.whole)), 0));
      heads.push(["whole", this.energy.unit, "Sum over the area"]);
    }
    this.head.replaceChildren(
      ...heads.map(([key, label, title]) =>
        h(
          "th",
          {
            scope: "col",
            title,
            "aria-sort": this.sort === key ? (this.isDescending ? "descending" : "ascending") : "none",
          },
          h("button", { type: "button", click: () => this.sortBy(key, result, column) }, label),
        ),
      ),
      h("th", { scope: "col" }, h("span", { class: "hidden" }, "Shown")),
    );
    this.fill();
  }

  private sortBy(key: SortKey, result: Result, column: Column): void {
    this.isDescending = this.sort === key ? !this.isDescending : key !== "name";
    this.sort = key;
    this.show(result, column, this.isHidden);
    // The heads are new: whoever sorts by the keyboard goes on from the same one.
    this.head.querySelector<HTMLElement>("th:not([aria-sort=none]) button")?.focus();
  }

  private fill(): void {
    const wanted = this.search.value.trim().toLowerCase();
    const label = (group: Group): string => group.name || "(no name)";
    const rows = this.groups.filter((group) => label(group).toLowerCase().includes(wanted));
    const sign = this.isDescending ? -1 : 1;
    const key = this.sort;
    rows.sort((a, b) =>
      key === "name"
        ? sign * label(a).localeCompare(label(b), undefined, { numeric: true })
        : sign * ((Number.isFinite(a[key]) ? a[key] : -Infinity) - (Number.isFinite(b[key]) ? b[key] : -Infinity)),
    );
    const most = 400;
    const isEnergy = this.head.childElementCount === 5;
    this.body.replaceChildren(
      ...rows.slice(0, most).map((group) => {
        const own: GroupKey = { kind: this.kind, name: group.name };
        const hidden = this.isHidden(own);
        const isChosen = this.chosen === group.name;
        const choose = (): void => {
          this.chosen = isChosen ? null : group.name;
          this.onChoose(this.chosen === null ? null : own);
          this.fill();
        };
        const text = label(group);
        const eye = h(
          "button",
          {
            type: "button",
            "aria-pressed": "false",
            title: hidden ? "Show" : "Hide",
            "aria-label": `${hidden ? "Show" : "Hide"} ${text.slice(0, 80)}`,
            click: (event: MouseEvent) => {
              event.stopPropagation();
              this.onHide(own, !hidden);
            },
          },
          icon(
            hidden
              ? "M4 4l16 16M9.9 5.2A9.6 9.6 0 0 1 12 5c5 0 8.5 4.2 9.5 7a12 12 0 0 1-2.6 3.8M6.3 7.2A12 12 0 0 0 2.5 12c1 2.800 4.500 7 9.500 7a9 9 0 0 0 4-.9"
              : "M2.500 12c1-2.800 4.500-7 9.500-7s8.500 4.200 9.500 7c-1 2.800-4.500 7-9.500 7s-8.500-4.200-9.500-7zM12 9.200a2.800 2.800 0 1 1 0 5.600 2.800 2.800 0 0 1 0-5.600z",
          ),
        );
        return h(
          "tr",
          {
            class: `${isChosen ? "chosen" : ""} ${hidden ? "off" : ""}`,
            tabindex: 0,
            "aria-current": isChosen ? "true" : undefined,
            click: choose,
            keydown: (event: KeyboardEvent) => {
              if (event.key === "Enter" && event.target === event.currentTarget) {
                choose();
              }
            },
          },
          h("td", { title: text.slice(0, 300) }, h("bdi", {}, text.slice(0, 300))),
          h("td", {}, areaText(group.area)),
          h("td", {}, meanText(group.mean, this.unit)),
          isEnergy && h("td", {}, numberText(group.whole * this.energy.factor)),
          h("td", {}, eye),
        );
      }),
    );
    const more = rows.length - most;
    this.note.textContent =
      more > 0
        ? `${more} more; search by name to see them.`
        : rows.length === 0
          ? "Nothing of this name."
          : "";
    this.note.hidden = this.note.textContent === "";
  }
}
