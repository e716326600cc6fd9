/// Elements. Text goes in as text alone: names come from models.

type Child = Node | string | null | undefined | false;
type Attributes = Record<string, string | number | boolean | ((event: never) => void) | undefined>;

export function h<K extends keyof HTMLElementTagNameMap>(
  tag: K,
  attributes: Attributes = {},
  ...children: Child[]
): HTMLElementTagNameMap[K] {
  const element = document.createElement(tag);
  for (const [name, value] of Object.entries(attributes)) {
    if (typeof value === "function") {
      element.addEventListener(name, value as EventListener);
    } else if (value === true) {
      element.setAttribute(name, "");
    } else if (value !== false && value !== undefined) {
      element.setAttribute(name, String(value));
    }
  }
  for (const child of children) {
    if (child) {
      element.append(child);
    }
  }
  return element;
}

/// A drawing of 24 x 24, lines only.
export function icon(path: string): SVGSVGElement {
  const space = "http://www.w3.org/2000/svg";
  const svg = document.createElementNS(space, "svg");
  svg.setAttribute("viewBox", "0 0 24 24");
  svg.setAttribute("aria-hidden", "true");
  const line = document.createElementNS(space, "path");
  line.setAttribute("d", path);
  svg.append(line);
  return svg;
}

export function download(name: string, content: Blob): void {
  const link = h("a", { href: URL.createObjectURL(content), download: name });
  document.body.append(link);
  link.click();
  link.remove();
  window.setTimeout(() => URL.revokeObjectURL(link.href), 10000);
}
