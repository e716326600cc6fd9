/// Unpacks the results that the page carries, and shows them.
import styles from "./style.css";
import chartStyles from "uplot/dist/uPlot.min.css";
import { h } from "./dom";
import { Page } from "./page";
import { Result } from "./packing";

declare global {
  interface Window {
    insolateUnpack(id: string): Promise<ArrayBuffer>;
    insolateRefuse(text: string): void;
    insolatePage?: Page;
    insolateReady?: number;
  }
}

async function start(): Promise<void> {
  const ids = Array.from(document.querySelectorAll("script.result"), (script) => script.id);
  const first = new Result(await window.insolateUnpack(ids[0]));
  document.head.append(h("style", {}, chartStyles + styles));
  document.documentElement.classList.add("live");
  const page = new Page(document.body);
  page.begin(first);
  window.insolateReady = performance.now();
  const rest = await Promise.all(ids.slice(1).map(window.insolateUnpack));
  page.complete(rest.map((buffer) => new Result(buffer)));
  window.insolatePage = page;
}

start().catch((error: unknown) => {
  document.documentElement.classList.remove("live");
  document.getElementById("app")?.remove();
  window.insolateRefuse(
    `The page cannot be shown (${error instanceof Error ? error.message : String(error)}). The picture below shows the results as they are.`,
  );
  throw error;
});
