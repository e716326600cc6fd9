import { readFileSync, statSync, writeFileSync } from "node:fs";
import { resolve } from "node:path";
import { afterAll, describe, expect, it } from "vitest";
import { colorAt, colorTable } from "../../src/colors";
import { folder, tableOf } from "../pages";
import { ask, close, openLive, settle, shot } from "./browser";

afterAll(close);

describe("the demo's page", () => {
  it("is small, quiet and shows the values of the table", async () => {
    expect(statSync(resolve(folder, "courtyard/page.html")).size).toBeLessThan(1.5e6);
    const { page, complaints } = await openLive("courtyard/page.html");
    const table = tableOf(`${folder}/courtyard/sensors.csv`);
    const total = table.column("total");
    // Places all over the picture, the same at each run; what they hit is asked as a pointer asks.
    const hits = await ask(page, (viewer) => {
      const { clientWidth, clientHeight } = viewer.view.canvas;
      const found: { sensor: number; value: string; x: number; y: number }[] = [];
      let seed = 12345;
      const random = (): number => (seed = (seed * 1103515245 + 12345) % 2147483648) / 2147483648;
      while (found.length < 200) {
        const x = Math.floor(random() * clientWidth);
        const y = Math.floor(random() * clientHeight);
        const hit = viewer.view.pick(x, y);
        if (hit) {
          found.push({ sensor: hit.sensor, value: viewer.describe(hit).value, x, y });
        }
      }
      return found;
    });
    expect(new Set(hits.map((hit) => hit.sensor)).size).toBeGreaterThan(150);
    for (const hit of hits) {
      expect(hit.value).toBe((total[hit.sensor] / 1000).toFixed(1));
    }
    // And what stands there on the screen has the colour of that value.
    const pixels = await ask(page, (viewer, places: { x: number; y: number }[]) => {
      viewer.view.drawNow();
      const copy = document.createElement("canvas");
      copy.width = viewer.view.canvas.width;
      copy.height = viewer.view.canvas.height;
      const context = copy.getContext("2d", { willReadFrequently: true })!;
      context.drawImage(viewer.view.canvas, 0, 0);
      return places.map(({ x, y }) => [...context.getImageData(Math.floor(x), Math.floor(y), 1, 1).data]);
    }, hits);
    const table256 = colorTable("sequential");
    const lowest = total.reduce((a, b) => Math.min(a, b));
    const highest = total.reduce((a, b) => Math.max(a, b));
    const off = hits.filter((hit, i) => {
      const wanted = colorAt((total[hit.sensor] - lowest) / (highest - lowest), table256);
      return wanted.some((part, k) => Math.abs(part - pixels[i][k]) > 4);
    });
    expect(off.length).toBeLessThan(12); // edges and borders of cells, drawn over some
    await shot(page, "demo");
    expect(complaints).toEqual([]);
  });

  it("shows, pins and lets go of a cell", async () => {
    const { page, complaints } = await openLive("courtyard/page.html");
    const place = await ask(page, (viewer) => {
      const { model } = viewer;
      viewer.view.look(180, 80);
      return viewer.view.cellOnScreen(model, 10236)!;
    });
    await settle(page);
    const box = (await page.locator("canvas.model").boundingBox())!;
    await page.mouse.move(box.x + place.x, box.y + place.y);
    await page.waitForSelector("#hint:not([hidden])");
    const table = tableOf(`${folder}/courtyard/sensors.csv`);
    const value = (table.column("total")[10236] / 1000).toFixed(1);
    expect(await page.locator("#hint").innerText()).toContain(value);
    expect(await page.locator("#hint").innerText()).toContain("court · surface");
    await page.mouse.down();
    await page.mouse.up();
    await page.waitForSelector("#panel .value");
    expect(await page.locator("#panel .value").innerText()).toContain(value);
    const card = page.locator("#panel details", { has: page.locator(".value") }).first();
    const words = await card.innerText();
    expect(words).toContain(`${table.column("peak")[10236].toFixed(1)} W/m²`);
    expect(words).toContain("level, faces up");
    // Its hours were asked for: a carpet and a mean day.
    await expect.poll(() => page.locator("canvas.carpet").count()).toBe(1);
    expect(await page.locator(".uplot").count()).toBe(1);
    await card.getByRole("button", { name: "Show the sun of the peak" }).click();
    expect(await page.getByLabel("Show at a moment").isChecked()).toBe(true);
    expect(await card.innerText()).toContain("In the sun on");
    await shot(page, "pinned");
    await page.locator("canvas.model").focus();
    await page.keyboard.press("Escape");
    await expect.poll(() => page.locator("#panel .value").isVisible()).toBe(false);
    expect(complaints).toEqual([]);
  });

  it("filters by value and says how much is left", async () => {
    const { page, complaints } = await openLive("courtyard/page.html");
    const table = tableOf(`${folder}/courtyard/sensors.csv`);
    const [total, area] = [table.column("total"), table.column("area")];
    const bar = (await page.locator("#legend canvas").boundingBox())!;
    const lowest = total.reduce((a, b) => Math.min(a, b)) / 1000;
    const highest = total.reduce((a, b) => Math.max(a, b)) / 1000;
    const y = bar.y + 0.25 * bar.height;
    await page.mouse.move(bar.x + 30, bar.y + 1);
    await page.mouse.down();
    await page.mouse.move(bar.x + 30, y, { steps: 3 });
    await page.mouse.up();
    const words = await page.locator("#legend .filter").innerText();
    const found = /([\d,]+) m² above ([\d,.]+) kWh/.exec(words);
    expect(found, words).not.toBeNull();
    const above = highest - 0.25 * (highest - lowest);
    expect(Number(found![2].replace(",", ""))).toBeCloseTo(above, -1);
    const sum = area.reduce((all, own, i) => all + (total[i] / 1000 >= above ? own : 0), 0);
    expect(Number(found![1].replace(",", "")) / sum).toBeCloseTo(1, 1);
    await shot(page, "filtered");
    // What is exported is what is left.
    const lines = (await ask(page, (viewer) => viewer.table())).trimEnd().split("\n");
    expect(lines[0]).toContain("total [kWh/m2]");
    const at = lines[0].split(",").indexOf("total [kWh/m2]");
    expect(lines.length).toBeGreaterThan(100);
    for (const line of lines.slice(1)) {
      expect(Number(line.split(",")[at])).toBeGreaterThanOrEqual(above - 1);
    }
    // By the keyboard, too.
    await page.locator("#legend canvas").focus();
    await page.keyboard.press("Escape");
    expect(await page.locator("#legend .filter").innerText()).toBe("");
    await page.keyboard.press("ArrowUp");
    expect(await page.locator("#legend .filter").innerText()).toContain("above");
    expect(complaints).toEqual([]);
  });

  it("isolates, hides, searches and sorts groups", async () => {
    const { page, complaints } = await openLive("courtyard/page.html");
    const rows = page.locator("tbody tr");
    expect(await rows.first().innerText()).toContain("ground"); // the largest
    await page.getByLabel("Search groups by name").fill("roof_pitched_s");
    await expect.poll(() => rows.count()).toBe(1);
    await rows.first().click();
    const figures = page.locator(".figures");
    expect(await figures.innerText()).toContain("341"); // m²
    const muted = await ask(page, (viewer) => viewer.model.states.filter((state) => (state & 2) !== 0).length);
    expect(muted).toBeGreaterThan(15000);
    await page.keyboard.press("Escape");
    await page.getByLabel("Search groups by name").fill("");
    await page.getByRole("button", { name: "Hide ground" }).click();
    const hidden = await ask(page, (viewer) => viewer.model.states.filter((state) => (state & 1) !== 0).length);
    expect(hidden).toBeGreaterThan(5000);
    await shot(page, "without-ground");
    await page.getByRole("button", { name: "Show ground" }).click();
    await page.locator("th", { hasText: "mean" }).click();
    expect(await rows.first().innerText()).toContain("roof_pitched_south");
    await page.getByLabel("Group by").selectOption("side");
    await expect.poll(() => rows.count()).toBe(5); // nothing faces down
    expect(complaints).toEqual([]);
  });

  it("turns, looks from the sides, cuts and changes its projection by the keyboard", async () => {
    const { page, complaints } = await openLive("courtyard/page.html");
    await page.locator("canvas.model").focus();
    const bearing = (): Promise<{ azimuth: number; altitude: number }> => ask(page, (viewer) => viewer.view.bearing());
    expect((await bearing()).azimuth).toBeCloseTo(155, 0);
    await page.keyboard.press("ArrowRight");
    expect((await bearing()).azimuth).toBeCloseTo(147, 0);
    const high = (await bearing()).altitude;
    await page.keyboard.press("ArrowUp");
    expect((await bearing()).altitude).toBeCloseTo(high + 6, 0);
    for (const [key, azimuth] of [["n", 0], ["e", 90], ["s", 180], ["w", 270]] as const) {
      await page.keyboard.press(key);
      expect(Math.cos(((await bearing()).azimuth - azimuth) * (Math.PI / 180))).toBeGreaterThan(0.9999);
      expect(Math.abs((await bearing()).altitude)).toBeLessThan(1);
    }
    const height = await ask(page, (viewer) => viewer.view.height);
    await page.keyboard.press("+");
    expect((await ask(page, (viewer) => viewer.view.height)) / height).toBeCloseTo(0.85, 2);
    await page.keyboard.press("0");
    await page.keyboard.press("p");
    expect(await ask(page, (viewer) => viewer.view.isParallel)).toBe(true);
    await page.keyboard.press("t");
    expect((await bearing()).altitude).toBeGreaterThan(89);
    await shot(page, "plan");
    await page.locator("summary", { hasText: "Section" }).click();
    await page.getByLabel("Section plane").selectOption("z");
    await page.getByLabel("Place of the section").fill("0.3");
    // Nothing that is hit lies above the plane: the tower's roof is gone.
    const heights = await ask(page, (viewer) => {
      const seen: number[] = [];
      for (let x = 40; x < viewer.view.canvas.clientWidth; x += 40) {
        for (let y = 40; y < viewer.view.canvas.clientHeight; y += 40) {
          const hit = viewer.view.pick(x, y);
          if (hit) {
            seen.push(...hit.model.corners(hit.sensor).map((corner) => corner.z));
          }
        }
      }
      return seen;
    });
    expect(heights.length).toBeGreaterThan(100);
    expect(Math.max(...heights)).toBeLessThan(0.3 * 26 + 0.8);
    expect(complaints).toEqual([]);
  });

  it("turns, moves and zooms by the pointer, and looks from where the buttons say", async () => {
    const { page, complaints } = await openLive("courtyard/page.html");
    const state = (): Promise<{ azimuth: number; altitude: number; height: number; x: number; y: number }> =>
      ask(page, (viewer) => ({
        ...viewer.view.bearing(), height: viewer.view.height, ...viewer.view.toScreen(viewer.model.corners(10236)[0])!,
      }));
    const box = (await page.locator("canvas.model").boundingBox())!;
    const [x, y] = [box.x + 0.4 * box.width, box.y + 0.5 * box.height];
    const drag = async (button: "left" | "right"): Promise<void> => {
      await page.mouse.move(x, y);
      await page.mouse.down({ button });
      await page.mouse.move(x + 60, y + 30, { steps: 2 });
      await page.mouse.up({ button });
    };
    const first = await state();
    await drag("left");
    const turned = await state();
    expect(Math.abs(turned.azimuth - first.azimuth)).toBeGreaterThan(5);
    expect(turned.height).toBeCloseTo(first.height, 1);
    await drag("right");
    const moved = await state();
    expect(moved.azimuth).toBeCloseTo(turned.azimuth, 3);
    expect(Math.hypot(moved.x - turned.x - 60, moved.y - turned.y - 30)).toBeLessThan(12);
    await page.mouse.wheel(0, -300);
    expect((await state()).height).toBeLessThan(0.95 * moved.height);
    await page.keyboard.press("Shift+ArrowLeft");
    expect(await page.locator("#scale .length span").innerText()).toMatch(/^\d+ m$/);
    await page.getByRole("button", { name: "The whole model (0)" }).click();
    expect((await state()).height / first.height).toBeCloseTo(1, 3);
    for (const [name, azimuth] of [["north", 0], ["east", 90], ["south", 180], ["west", 270]] as const) {
      await page.getByRole("button", { name: `From the ${name}` }).click();
      expect(Math.cos(((await state()).azimuth - azimuth) * (Math.PI / 180))).toBeGreaterThan(0.9999);
    }
    // The arrow points north: from the west that is to the left.
    const needle = await page.locator("#scale path").getAttribute("d");
    expect(Number(/^M([\d.]+)/.exec(needle!)![1])).toBeLessThan(12);
    await page.getByRole("button", { name: "From above (T)" }).click();
    expect((await state()).altitude).toBeGreaterThan(89);
    await page.getByRole("button", { name: "Parallel projection (P)" }).click();
    expect(await ask(page, (viewer) => viewer.view.isParallel)).toBe(true);
    const whole = (await state()).height;
    await page.getByLabel("Search groups by name").fill("court");
    await page.getByLabel("Search groups by name").press("Enter");
    await page.getByRole("button", { name: "Fit to what is chosen (F)" }).click();
    expect((await state()).height).toBeLessThan(0.6 * whole);
    expect(complaints).toEqual([]);
  });

  it("shows other quantities, ends and steps of the colours, surroundings and sections", async () => {
    const { page, complaints } = await openLive("courtyard/page.html");
    const table = tableOf(`${folder}/courtyard/sensors.csv`);
    await page.getByLabel("Show", { exact: true }).selectOption({ label: "Direct radiation" });
    const [value, name] = await ask(page, (viewer) => [viewer.column.at(10236), viewer.column.name]);
    expect(name).toBe("beam");
    expect(value).toBeCloseTo(table.column("beam")[10236] / 1000, 1);
    await page.getByLabel("Show", { exact: true }).selectOption({ label: "Total radiation" });
    // A pixel of a cell in the court's middle, from above: where the value stands between the ends.
    await page.keyboard.press("t");
    const pixel = (): Promise<number[]> =>
      ask(page, (viewer) => {
        const { view } = viewer;
        const { x, y } = view.cellOnScreen(viewer.model, 10236)!;
        view.drawNow();
        const copy = document.createElement("canvas");
        [copy.width, copy.height] = [view.canvas.width, view.canvas.height];
        const context = copy.getContext("2d")!;
        context.drawImage(view.canvas, 0, 0);
        return [...context.getImageData(Math.round(x), Math.round(y), 1, 1).data].slice(0, 3);
      });
    const total = table.column("total")[10236] / 1000;
    const colors = colorTable("sequential");
    await page.getByLabel("Upper end of the colours").fill("600");
    await page.getByLabel("Upper end of the colours").press("Enter");
    await page.getByLabel("Lower end of the colours").fill("400");
    await page.getByLabel("Lower end of the colours").press("Enter");
    expect(await pixel()).toEqual(colorAt((total - 400) / 200, colors));
    await page.locator("summary", { hasText: "Appearance" }).click();
    await page.locator("#steps").selectOption("5");
    expect(await pixel()).toEqual(colorAt(Math.floor((5 * (total - 400)) / 200) / 4, colors));
    await page.getByRole("button", { name: "auto" }).click();
    const lowest = table.column("total").reduce((a, b) => Math.min(a, b)) / 1000;
    expect(await page.getByLabel("Lower end of the colours").inputValue()).toBe(lowest.toFixed(1));
    // What stands around.
    const drawn = (): Promise<boolean[]> =>
      ask(page, (viewer) => {
        const shown = viewer.model.scene.children.filter((child) => child.visible).map((child) => child.type);
        return [shown.filter((type) => type === "Mesh").length === 2, shown.includes("LineSegments")];
      });
    for (const [choice, expected] of [["solid", [true, true]], ["lines", [false, true]], ["none", [false, false]]] as const) {
      await page.getByLabel("Surroundings").selectOption(choice);
      expect(await drawn()).toEqual(expected);
    }
    // Half of the model is cut off, and then the other half.
    await page.locator("summary", { hasText: "Section" }).click();
    const seen = (): Promise<number[]> =>
      ask(page, (viewer) => {
        const found: number[] = [];
        for (let x = 20; x < viewer.view.canvas.clientWidth; x += 40) {
          for (let y = 20; y < viewer.view.canvas.clientHeight; y += 40) {
            const hit = viewer.view.pick(x, y);
            if (hit) {
              found.push(hit.model.corners(hit.sensor)[0].y + viewer.results[0].record.origin[1]);
            }
          }
        }
        return found;
      });
    await page.getByLabel("Section plane").selectOption("y");
    const place = async (): Promise<number> => Number(/[-\d.]+(?= m)/.exec((await page.getByLabel("Place of the section").getAttribute("aria-valuetext"))!)![0]);
    const near = await seen();
    expect(near.length).toBeGreaterThan(30);
    expect(Math.max(...near)).toBeLessThan((await place()) + 71 / 2);
    const highest = Math.max(...near);
    await page.getByLabel("the other half").check();
    expect(Math.min(...(await seen()))).toBeGreaterThan(highest - 1);
    expect(complaints).toEqual([]);
  });

  it("can be read by assistive software, in light and dark", async () => {
    const axe = readFileSync("node_modules/axe-core/axe.min.js", "utf8");
    for (const colorScheme of ["light", "dark"] as const) {
      const { page } = await openLive("courtyard/page.html", { colorScheme });
      await ask(page, (viewer) => viewer.setMoment(172, 600));
      await page.locator("canvas.model").click({ position: { x: 400, y: 420 } });
      await page.getByLabel("Search groups by name").press("Enter");
      for (const name of ["Section", "Appearance", "About this study"]) {
        await page.locator("summary", { hasText: name }).click();
      }
      await page.evaluate(axe);
      const found = await page.evaluate(async () => {
        const { violations } = await window.axe.run(document, { resultTypes: ["violations"] });
        return violations.map((one) => `${one.id}: ${one.nodes.map((node) => node.html.slice(0, 120)).join(" | ").slice(0, 400)}`);
      });
      expect(found).toEqual([]);
    }
  });

  it("saves a picture with title and colours, and the cells in view", async () => {
    const { page, complaints } = await openLive("courtyard/page.html");
    await page.locator("tbody tr", { hasText: "roof_flat" }).click();
    const table = page.waitForEvent("download");
    await page.getByRole("button", { name: "Save the cells in view as CSV" }).click();
    const lines = readFileSync((await (await table).path())!, "utf8").trimEnd().split("\n");
    const roof = await page.locator("#panel dl").first().innerText();
    expect(roof.replace(",", "")).toContain(String(lines.length - 1)); // as the group's card counts them
    expect(lines.slice(1).every((line) => line.includes(",roof_flat,"))).toBe(true);
    await page.keyboard.press("Escape");
    const waiting = page.waitForEvent("download");
    await page.getByRole("button", { name: "Save the picture as PNG" }).click();
    const file = await waiting;
    expect(file.suggestedFilename()).toBe("courtyard.png");
    const bytes = readFileSync((await file.path())!);
    expect(bytes.subarray(1, 4).toString()).toBe("PNG");
    expect(bytes.length).toBeGreaterThan(30_000);
    writeFileSync(resolve(folder, "saved.png"), bytes);
    expect(complaints).toEqual([]);
  });

  it("is at hand in the dark and on a phone", async () => {
    const dark = await openLive("courtyard/page.html", { colorScheme: "dark" });
    const ground = await dark.page.evaluate(() => getComputedStyle(document.body).backgroundColor);
    expect(ground).toBe("rgb(21, 23, 27)");
    await shot(dark.page, "dark");
    expect(dark.complaints).toEqual([]);
    const { page, complaints } = await openLive("courtyard/page.html", {
      viewport: { width: 390, height: 844 },
      hasTouch: true,
      isMobile: true,
      deviceScaleFactor: 2,
    });
    const wide = await page.evaluate(() => document.documentElement.scrollWidth);
    expect(wide).toBeLessThanOrEqual(390);
    const box = (await page.locator("canvas.model").boundingBox())!;
    expect(box.width).toBe(390);
    await page.touchscreen.tap(box.x + 190, box.y + 0.62 * box.height);
    await page.waitForSelector("#panel .value");
    await shot(page, "phone");
    await page.getByRole("button", { name: "From above (T)" }).tap();
    expect((await ask(page, (viewer) => viewer.view.bearing())).altitude).toBeGreaterThan(89);
    await page.getByRole("button", { name: "Make the panel smaller or larger" }).click();
    await expect.poll(async () => (await page.locator("canvas.model").boundingBox())!.height).toBeGreaterThan(650);
    expect(complaints).toEqual([]);
  });

  it("has its numbers whole at every width", async () => {
    const { page } = await openLive("courtyard/page.html");
    await page.locator("th button", { hasText: "mean" }).click();
    for (const width of [1024, 1400, 1920, 390]) {
      await page.setViewportSize({ width, height: 844 });
      const cut = await page.evaluate(() => {
        const table = document.querySelector(".table")!;
        const edge = table.getBoundingClientRect().right;
        return [...table.querySelectorAll("td:not(:first-child), th:not(:last-child)")]
          .filter((cell) => cell.scrollWidth > cell.clientWidth || cell.getBoundingClientRect().right > edge + 0.5)
          .map((cell) => cell.textContent);
      });
      expect(cut, `${width}`).toEqual([]);
      const name = (await page.locator("tbody td").first().boundingBox())!;
      expect(name.width).toBeGreaterThanOrEqual(90);
      await shot(page, `width-${width}`);
    }
  });
});
