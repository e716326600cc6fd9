// Measures pages in headless Chromium that draws by software: node tests/measure.mjs PAGE ...
// The times hold the machine's other work too; the least of several is nearest to what the page takes.
import { statSync } from "node:fs";
import { resolve } from "node:path";
import { chromium } from "playwright-core";

const browser = await chromium.launch({
  executablePath: process.env.INSOLATE_CHROMIUM ?? "/usr/bin/chromium",
  args: ["--headless", "--no-sandbox", "--disable-quic", "--no-first-run", "--disable-background-networking",
    "--disable-component-update", "--disable-sync", "--use-angle=swiftshader", "--enable-unsafe-swiftshader"],
});
for (const file of process.argv.slice(2)) {
  const page = await browser.newPage({ viewport: { width: 1280, height: 720 } });
  page.setDefaultTimeout(120_000);
  await page.goto(`file://${resolve(file)}`);
  await page.waitForFunction(() => window.insolatePage !== undefined);
  const measured = await page.evaluate(async () => {
    const viewer = window.insolatePage;
    const { view } = viewer;
    const least = (run, count = 7) => {
      const times = Array.from({ length: count }, () => {
        const begin = performance.now();
        run();
        return performance.now() - begin;
      }).sort((a, b) => a - b);
      return [times[0], times[count >> 1]];
    };
    view.drawNow();
    const frame = least(() => { view.orbit(3, 0); view.drawNow(); });
    // Pointers over cells all over the model: beside it there is little to draw.
    const places = Array.from({ length: 27 }, (_, i) =>
      view.cellOnScreen(viewer.model, Math.floor(((i + 0.5) / 27) * viewer.model.result.cells.count)));
    let n = 0;
    let hits = 0;
    const pick = least(() => {
      const { x, y } = places[n++];
      hits += view.pick(x, y) === null ? 0 : 1;
    }, places.length);
    let minute = 540;
    const sun = least(() => { viewer.setMoment(172, minute += 20); view.drawNow(); });
    return { first: window.insolateReady, cells: viewer.model.result.cells.count, frame, pick, hits, sun,
      memory: performance.memory ? performance.memory.usedJSHeapSize / 1e6 : NaN };
  });
  const ms = ([a, b]) => `${a.toFixed(0)} (median ${b.toFixed(0)}) ms`;
  console.log(`${file}: ${measured.cells} cells, ${(statSync(file).size / 1e6).toFixed(2)} MB
  first picture ${(measured.first / 1000).toFixed(2)} s, frame ${ms(measured.frame)}, pointing ${ms(measured.pick)} ` +
    `(${measured.hits} of 27 places on the model), sun moved ${ms(measured.sun)}, script's memory ${measured.memory.toFixed(0)} MB`);
  await page.close();
}
await browser.close();
