/// Debian's Chromium, drawing by software, as people open the page: a file, no network.
import { mkdirSync } from "node:fs";
import { resolve } from "node:path";
import { type Browser, type BrowserContext, type BrowserContextOptions, chromium, type Page } from "playwright-core";
import type { Page as Viewer } from "../../src/page";
import { folder } from "../pages";

declare global {
  interface Window {
    broken?: number;
    axe: { run(place: Document, options: object): Promise<{ violations: { id: string; nodes: { html: string }[] }[] }> };
  }
}

let browser: Browser | null = null;
let context: BrowserContext | null = null;

export async function close(): Promise<void> {
  await browser?.close();
  browser = null;
}

export interface Opened {
  page: Page;
  /// What must stay empty: messages of the console, errors, requests to anywhere.
  complaints: string[];
}

/// @param missing what the browser does not have: "WebGL 2", or DecompressionStream where it is "too old"
export async function open(file: string, options: BrowserContextOptions = {}, missing = ""): Promise<Opened> {
  browser ??= await chromium.launch({
    executablePath: process.env.INSOLATE_CHROMIUM ?? "/usr/bin/chromium",
    args: [
      "--headless", "--no-sandbox", "--disable-quic", "--no-first-run", "--disable-background-networking",
      "--disable-component-update", "--disable-sync", "--use-angle=swiftshader", "--enable-unsafe-swiftshader",
    ],
  });
  await context?.close(); // one page at a time: each holds the graphics of its model
  context = await browser.newContext({ viewport: { width: 1280, height: 800 }, ...options });
  const page = await context.newPage();
  page.setDefaultTimeout(120_000);
  const complaints: string[] = [];
  page.on("console", (message) => {
    // Drawing by software waits when pixels are read; Chromium says so.
    if (!/GPU stall due to ReadPixels|GL Driver Message/.test(message.text())) {
      complaints.push(`${message.type()}: ${message.text()}`);
    }
  });
  page.on("pageerror", (error) => complaints.push(String(error.stack)));
  page.on("request", (request) => {
    if (!/^(file|blob|data):/.test(request.url())) {
      complaints.push(`request to ${request.url()}`);
    }
  });
  if (missing === "WebGL 2") {
    await page.addInitScript("HTMLCanvasElement.prototype.getContext = () => null");
  } else if (missing !== "") {
    await page.addInitScript("delete window.DecompressionStream");
  }
  await page.goto(`file://${resolve(folder, file)}`);
  return { page, complaints };
}

/// Opens a page and waits until its controls work.
export async function openLive(file: string, options: BrowserContextOptions = {}): Promise<Opened> {
  const opened = await open(file, options);
  await opened.page.waitForFunction(() => window.insolatePage !== undefined);
  await settle(opened.page);
  return opened;
}

/// Until what was asked for has been drawn.
export async function settle(page: Page): Promise<void> {
  await page.evaluate(() => {
    window.insolatePage!.view.drawNow();
  });
}

/// Calls a function with the page's viewer, in the browser.
export function ask<Result, Argument>(
  page: Page,
  question: (viewer: Viewer, argument: Argument) => Result,
  argument?: Argument,
): Promise<Result> {
  return page.evaluate(
    ([text, value]) => {
      // eslint-disable-next-line no-eval
      const own = (0, eval)(`(${text})`) as (viewer: unknown, argument: unknown) => unknown;
      return own(window.insolatePage, value);
    },
    [question.toString(), argument] as const,
  ) as Promise<Result>;
}

export async function shot(page: Page, name: string): Promise<void> {
  const place = resolve(folder, "pictures");
  mkdirSync(place, { recursive: true });
  await page.waitForTimeout(400);
  await page.screenshot({ path: resolve(place, `${name}.png`) });
}
