import { execFileSync } from "node:child_process";
import { existsSync, readFileSync, statSync, writeFileSync } from "node:fs";
import { resolve } from "node:path";
import { afterAll, describe, expect, it } from "vitest";
import { colorAt, colorTable } from "../../src/colors";
import { command, folder, tableOf } from "../pages";
import { ask, close, open, openLive, settle, shot } from "./browser";

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
    expect(await page.getByLabel("Lower end of the colours").inputValue()).toBe("108.3");
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

describe("the months of a page", () => {
  it.each(["months/page.html", "months-view.html"])("are chosen and played, in %s", async (file) => {
    const table = tableOf(`${folder}/months/sensors.csv`);
    const { page, complaints } = await openLive(file);
    // Months are steps, no quantities among the others.
    expect((await page.locator("#quantity option").allInnerTexts()).join()).not.toContain("January");
    const slider = page.getByLabel(/^Part of the period/);
    const months = ["jan", "feb", "mar", "apr", "may", "jun", "jul", "aug", "sep", "oct", "nov", "dec"];
    const tables = months.map((month) => table.column(`total_${month}`));
    const highest = Math.max(...tables.map((values) => values.reduce((a, b) => Math.max(a, b)))) / 1000;
    const enclosed = table.column("enclosed");
    for (const month of [1, 6, 12]) {
      await slider.fill(String(month));
      const shown = await ask(page, (viewer) => Array.from({ length: viewer.model.result.cells.count }, (_, i) => viewer.column.at(i)));
      expect(shown.length).toBe(table.rows);
      const step = await ask(page, (viewer) => viewer.column.step);
      expect(step).toBeLessThan(highest / 5000); // so few values keep all digits
      const off = shown.map((value, i) => (enclosed[i] === 1 ? 0 : Math.abs(value - tables[month - 1][i] / 1000)));
      expect(Math.max(...off)).toBeLessThan(0.501 * step);
      expect(Math.abs(Number(await page.getByLabel("Upper end of the colours").inputValue()) - highest)).toBeLessThan(step);
    }
    expect(await slider.getAttribute("aria-valuetext")).toBe("1 December to 31 December");
    // Ends of the reader's own last from part to part, and go with the parts.
    const upper = page.getByLabel("Upper end of the colours");
    await upper.fill("100");
    await upper.press("Enter");
    await slider.fill("3");
    expect(Number(await upper.inputValue())).toBe(100);
    await slider.fill("0");
    expect(Number(await upper.inputValue())).toBeGreaterThan(2 * highest);
    await slider.fill("6");
    await shot(page, file.replace("/page", "").replace(".html", ""));
    await page.getByRole("button", { name: "Play through the period" }).click();
    await expect.poll(() => slider.inputValue()).not.toBe("6");
    await page.getByRole("button", { name: "Play through the period" }).click();
    await slider.fill("0");
    expect(await ask(page, (viewer) => viewer.column.name)).toBe("total");
    // The hours of the groups belong to their cells.
    const hours = await ask(page, (viewer) => {
      const series = viewer.results[0].series;
      const one = series.find(({ label }) => label === "object ground")!;
      return { count: series.length, sum: one.hours.reduce((a: number, b: number) => a + b, 0) };
    });
    const groups = readFileSync(`${folder}/months/hours.csv`, "utf8").trimEnd().split("\n").map((line) => line.split(","));
    const at = groups[0].indexOf("beam_object ground [Wh/m2]");
    const sum = groups.slice(1).reduce((all, row) => all + Number(row[at]) + Number(row[at + 1]) + Number(row[at + 2]), 0);
    expect(hours.count).toBe((groups[0].length - 2) / 3);
    expect(hours.sum / sum).toBeCloseTo(1, 3);
    await ask(page, (viewer) => viewer.view.look(180, 80));
    const place = await ask(page, (viewer) => {
      const { clientWidth, clientHeight } = viewer.view.canvas;
      for (let y = 0.9 * clientHeight; y > 0; y -= 10) {
        for (let x = 20; x < clientWidth; x += 20) {
          const hit = viewer.view.pick(x, y);
          if (hit && viewer.describe(hit).lines.some((line) => line.includes("ground"))) {
            return { x, y };
          }
        }
      }
      return null;
    });
    const box = (await page.locator("canvas.model").boundingBox())!;
    await page.mouse.click(box.x + place!.x, box.y + place!.y);
    await expect.poll(() => page.locator("canvas.carpet").count()).toBe(1);
    expect(await page.locator("#panel").innerText()).toContain("of object ground");
    expect(await page.locator(".uplot").count()).toBe(2); // the months and the mean day
    await shot(page, `${file.slice(0, 6)}-pinned`);
    expect(complaints).toEqual([]);
  });
});

describe("the sun of the page", () => {
  it("casts the shadows of the kernel's rays", async () => {
    const points = tableOf(`${folder}/level.csv`);
    const [x, y] = [points.column("x"), points.column("y")];
    const { page, complaints } = await openLive("courtyard/page.html");
    for (const [date, day, hour] of [["6/21", 172, 9], ["3/21", 80, 15], ["12/21", 355, 12]] as const) {
      const out = resolve(folder, `light-${day}`);
      execFileSync(command, [
        "sunhours", "--quiet", "--scene", "../examples/courtyard/courtyard.obj", "--sensors", resolve(folder, "level.csv"),
        "--lat", "47", "--lon", "8", "--tz", "1", "--dates", date, "--hours", `${hour}:00-${hour}:02`, "--out", out,
      ]);
      const hours = tableOf(`${out}/sensors.csv`).column("sun");
      const lit = await ask(
        page,
        (viewer, { at, moment }) => {
          viewer.setMoment(moment[0], moment[1]);
          return [...viewer.view.litAt(at)];
        },
        { at: Array.from(x).flatMap((_, i) => [x[i], y[i], 0.05]), moment: [day, 60 * hour + 1] },
      );
      const wrong = Array.from(hours.keys()).filter((i) => hours[i] > 1 !== lit[i] >= 0.5);
      expect(hours.filter((value) => value > 1).length).toBeGreaterThan(300);
      expect(wrong.length, date).toBeLessThanOrEqual(20);
      // Where they disagree an edge of the shadow is near: within half a metre are points of both kinds.
      const around = await ask(
        page,
        (viewer, at) => [...viewer.view.litAt(at)],
        wrong.flatMap((i) =>
          Array.from({ length: 16 }, (_, k) => [
            x[i] + 0.5 * Math.cos((k * Math.PI) / 8), y[i] + 0.5 * Math.sin((k * Math.PI) / 8), 0.05,
          ]).flat(),
        ),
      );
      wrong.forEach((_, n) => {
        const ring = around.slice(16 * n, 16 * n + 16);
        expect(Math.max(...ring) >= 0.5 && Math.min(...ring) < 0.5, `${date}, point ${wrong[n]}`).toBe(true);
      });
    }
    await shot(page, "winter-noon");
    expect(complaints).toEqual([]);
  });

  it("moves by its sliders and plays", async () => {
    const { page, complaints } = await openLive("courtyard/page.html");
    await page.getByLabel("Date").fill("355");
    expect(await page.getByLabel("Show at a moment").isChecked()).toBe(true);
    await page.getByLabel("Time of day").fill("720");
    const card = page.locator("#panel details", { hasText: "Sun and shadows" });
    expect(await card.innerText()).toContain("21 December");
    expect(await card.innerText()).toContain("in the south");
    await page.getByRole("button", { name: "Play through the day" }).click();
    await expect.poll(() => page.getByLabel("Time of day").inputValue()).not.toBe("720");
    await page.getByRole("button", { name: "Play through the day" }).click();
    expect(complaints).toEqual([]);
  });
});

describe("several results", () => {
  it("stand side by side and as a difference", async () => {
    const { page, complaints } = await openLive("compared.html");
    const sum = (name: string): number[] => [...tableOf(`${folder}/${name}/sensors.csv`).column("total")];
    const [year, summer] = [sum("courtyard"), sum("summer")];
    await page.getByRole("button", { name: "Difference" }).click();
    const values = await ask(page, (viewer) => [0, 5000, 10236].map((i) => viewer.column.at(i)));
    [0, 5000, 10236].forEach((i, k) => expect(Math.abs(values[k] - (summer[i] - year[i]) / 1000)).toBeLessThan(0.11));
    await shot(page, "difference");
    await page.getByRole("button", { name: "Side by side" }).click();
    const picked = await ask(page, (viewer) => {
      const { x, y } = viewer.view.cellOnScreen(viewer.view.models[0], 10236)!;
      const left = viewer.view.pick(x, y)!;
      const right = viewer.view.pick(x + viewer.view.canvas.clientWidth / 2, y)!;
      return { same: left.sensor === right.sensor, first: left.model === viewer.view.models[0], second: right.model === viewer.view.models[1] };
    });
    expect(picked).toEqual({ same: true, first: true, second: true });
    await shot(page, "beside");
    expect(complaints).toEqual([]);
  });
});

describe("designs of one place", () => {
  it("have the shadows of their own scenes, on walls as well", async () => {
    const { page, complaints } = await openLive("designs.html");
    const table = tableOf(`${folder}/noon/sensors.csv`);
    const [x, y, z, ny, sun] = ["x", "y", "z", "ny", "sun"].map((name) => table.column(name));
    const all = Array.from(sun.keys());
    // Ground that the tower shades, but for a tree nothing else: with the sun shown, it is dark in one picture
    // and not in the other.
    const ground = all.filter((i) => x[i] > 2 && x[i] < 14 && y[i] > -33 && y[i] < -24 && z[i] < 0.1);
    expect(ground.length).toBeGreaterThan(100);
    expect(ground.every((i) => sun[i] === 0)).toBe(true);
    const darkened = (): Promise<number> =>
      ask(page, (viewer, cells: number[]) => {
        const { view, model } = viewer;
        const brightness = (): number[] => {
          view.drawNow();
          const copy = document.createElement("canvas");
          copy.width = view.canvas.width;
          copy.height = view.canvas.height;
          const context = copy.getContext("2d", { willReadFrequently: true })!;
          context.drawImage(view.canvas, 0, 0);
          return cells.map((cell) => {
            const at = view.cellOnScreen(model, cell)!;
            return context.getImageData(Math.floor(at.x), Math.floor(at.y), 1, 1).data.slice(0, 3).reduce((a, b) => a + b, 0);
          });
        };
        viewer.setMoment(355, 721);
        view.look(180, 89);
        const lit = brightness();
        view.setSun(null, [], []);
        const plain = brightness();
        return lit.filter((value, i) => value < 0.8 * plain[i]).length / cells.length;
      }, ground);
    const result = (name: string) => page.getByRole("group", { name: "Result" }).getByRole("button", { name, exact: true });
    expect(await darkened()).toBeLessThan(0.3);
    await result("tower").click();
    expect(await darkened()).toBeGreaterThan(0.9);
    // Without the sun moving in between, and after a cell of the other design was asked for.
    const [before, shaded, after] = await ask(page, (viewer, cells: number[]) => {
      viewer.setMoment(355, 721);
      viewer.view.drawNow();
      return [0, 1, 0].map((number) => cells.filter((cell) => viewer.view.isLit(viewer.view.models[number], cell)).length);
    }, ground.filter((_, k) => k % 5 === 0));
    expect(before).toBeGreaterThan(0.7 * (ground.length / 5));
    expect([shaded, after]).toEqual([0, before]);
    // A texel of the map is more than a metre wide here: surfaces must not shade themselves.
    const walls = all.filter((i) => ny[i] < -0.9 && sun[i] > 1).filter((_, k) => k % 10 === 0);
    expect(walls.length).toBeGreaterThan(60);
    const lit = await ask(page, (viewer, cells: number[]) => cells.filter((cell) => viewer.view.isLit(viewer.view.models[1], cell)).length, walls);
    expect(lit / walls.length).toBeGreaterThan(0.9);
    expect(complaints).toEqual([]);
  });

  it("keep the pinned cell and offer the quantities that they have", async () => {
    const { page, complaints } = await openLive("designs.html");
    const results = page.getByRole("group", { name: "Result" });
    expect(await results.getByRole("button").allInnerTexts()).toEqual([
      "courtyard", "tower", "noon", "Side by side", "Difference tower",
    ]);
    expect(await page.locator("#panel").innerText()).toContain("No difference with noon: it has no quantity in common");
    await ask(page, (viewer) => viewer.view.look(180, 89));
    const place = await ask(page, (viewer) => viewer.view.cellOnScreen(viewer.model, 10236)!);
    const box = (await page.locator("canvas.model").boundingBox())!;
    await page.mouse.click(box.x + place.x, box.y + place.y);
    const value = page.locator("#panel .value");
    const total = (name: string): number => tableOf(`${folder}/${name}/sensors.csv`).column("total")[10236] / 1000;
    const [own, other] = [total("courtyard"), total("tower")];
    expect(await value.innerText()).toContain(own.toFixed(1));
    await results.getByRole("button", { name: "tower", exact: true }).click();
    expect(await value.innerText()).toContain(other.toFixed(1));
    await results.getByRole("button", { name: "Difference tower" }).click();
    expect(Number((await value.innerText()).split(" ")[0])).toBeCloseTo(other - own, 0);
    await results.getByRole("button", { name: "noon" }).click();
    expect(await value.innerText()).toMatch(/^0(\.0+)? h$/);
    expect(await page.locator("#quantity option").allInnerTexts()).not.toContain("Total radiation");
    await results.getByRole("button", { name: "Side by side" }).click();
    expect(await page.locator("#quantity option").allInnerTexts()).toContain("Total radiation");
    expect(await page.locator(".beside").allInnerTexts()).toEqual(["courtyard", "tower"]);
    await shot(page, "designs");
    expect(complaints).toEqual([]);
  });

  it("leave nothing behind on the graphics card while the day plays", async () => {
    const { page } = await openLive("courtyard/page.html");
    const [first, last] = await ask(page, (viewer) => {
      const held = (from: number): number => {
        for (let minute = from; minute < from + 100; minute += 10) {
          viewer.setMoment(172, minute);
          viewer.view.drawNow();
        }
        return viewer.view["renderer"].info.memory.geometries;
      };
      return [held(600), held(700)];
    });
    expect(last).toBe(first);
  });

  it("have quantities of their own", async () => {
    const { page, complaints } = await openLive("designs.html");
    const result = (name: string) => page.getByRole("group", { name: "Result" }).getByRole("button", { name, exact: true });
    await result("noon").click();
    expect(await ask(page, (viewer) => viewer.column.name)).toBe("sun");
    expect(await page.getByLabel("Show", { exact: true }).inputValue()).toBe("sun");
    await result("tower").click();
    expect(await ask(page, (viewer) => viewer.column.name)).toBe("total");
    expect(complaints).toEqual([]);
  });
});

describe("pages of other questions", () => {
  it("show hours of sun with site, days and verdict", async () => {
    const { page, complaints } = await openLive("sun.html");
    const table = tableOf(`${folder}/sun/sensors.csv`);
    const area = table.column("area");
    expect(await page.locator("#legend .unit").innerText()).toContain("\nh");
    const values = await ask(page, (viewer) => [0, 500, 1000].map((i) => viewer.column.text(viewer.column.at(i))));
    const step = await ask(page, (viewer) => viewer.column.step);
    [0, 500, 1000].forEach((i, k) => expect(Math.abs(Number(values[k]) - table.column("sun")[i] / 60)).toBeLessThan(0.51 * step));
    await page.locator("summary", { hasText: "About" }).click();
    const facts = await page.locator("#panel dl").last().locator("..").innerText();
    expect(facts).toContain("47°, 8°");
    expect(facts).toMatch(/pass/);
    expect(facts).toMatch(/Rule\s/);
    const slider = page.getByLabel(/^Part of the period/);
    expect(await slider.getAttribute("max")).toBe("2");
    await slider.fill("2");
    expect(await slider.getAttribute("aria-valuetext")).toContain("21 December");
    const winter = table.column("sun_2025_12_21");
    const shown = await ask(page, (viewer) => Array.from({ length: viewer.model.result.cells.count }, (_, i) => viewer.column.at(i)));
    const fine = await ask(page, (viewer) => viewer.column.step);
    expect(Math.max(...shown.map((hours, i) => Math.abs(hours - winter[i] / 60)))).toBeLessThan(0.51 * fine);
    // The verdict: two colours, and the share of the area.
    await page.getByLabel("Show", { exact: true }).selectOption({ label: "Whether the threshold is reached" });
    const passes = table.column("passes");
    const share = area.reduce((sum, own, i) => sum + own * passes[i], 0) / area.reduce((sum, own) => sum + own, 0);
    expect(await page.locator(".figures").innerText()).toContain(`${(100 * share).toFixed(1)} %`);
    await shot(page, "sun");
    // The sun has a site to shine on.
    await page.getByLabel("Date").fill("355");
    expect(await page.locator("#panel").innerText()).toContain("21 December");
    expect(complaints).toEqual([]);
  });

  it("show a comparison by colours to both sides of nothing", async () => {
    const { page, complaints } = await openLive("change.html");
    const table = tableOf(`${folder}/change/sensors.csv`);
    const differences = table.column("total_difference");
    const [low, high] = await Promise.all(["Lower", "Upper"].map((end) => page.getByLabel(`${end} end of the colours`).inputValue()));
    expect(Number(low)).toBe(-Number(high));
    expect(Number(high)).toBeCloseTo(differences.reduce((a, b) => Math.max(a, Math.abs(b) || 0), 0) / 1000, 2);
    const first = await ask(page, (viewer) => ({ value: viewer.column.at(700), scheme: viewer.column.diverging, step: viewer.column.step }));
    expect(first.scheme).toBe(true);
    expect(Math.abs(first.value - differences[700] / 1000)).toBeLessThan(0.51 * first.step);
    await page.locator("summary", { hasText: "About" }).click();
    expect(await page.locator("#panel dl").last().locator("..").innerText()).toMatch(/A\s+Courtyard Demo.*\s+B\s+Courtyard Demo/);
    await shot(page, "change");
    expect(complaints).toEqual([]);
  });

  it("know folders of equal names by those above them, and show both values of a cell", async () => {
    const { page, complaints } = await openLive("twice.html");
    const names = await page.locator(".switch button").allInnerTexts();
    expect(names.slice(0, 2)).toEqual(["albedo-0.2/result", "albedo-0.6/result"]);
    await page.getByRole("button", { name: "Difference" }).click();
    const tables = ["0.2", "0.6"].map((albedo) => tableOf(`${folder}/albedo-${albedo}/result/sensors.csv`).column("total")[700] / 1000);
    const lines = await ask(page, (viewer) => viewer.describe({ model: viewer.model, sensor: 700 }).lines.join("\n"));
    const [before, after] = [/0\.2\/result: ([\d.]+)/, /0\.6\/result: ([\d.]+)/].map((line) => Number(line.exec(lines)![1]));
    expect(before).toBeCloseTo(tables[0], 2);
    expect(after).toBeCloseTo(tables[1], 2);
    expect(await page.locator("#legend .unit").innerText()).toContain("albedo-0.6/result less albedo-0.2/result");
    expect(complaints).toEqual([]);
  });

  it.each(["houses/page.html", "houses-view.html"])("show enclosed cells grey and by that word, in %s", async (file) => {
    const { page, complaints } = await openLive(file);
    const table = tableOf(`${folder}/houses/sensors.csv`);
    const [enclosed, total, area] = ["enclosed", "total", "area"].map((name) => table.column(name));
    const count = enclosed.reduce((sum, own) => sum + own, 0);
    expect(count).toBeGreaterThanOrEqual(72);
    expect(await page.locator("#panel").innerText()).toContain(`${count} enclosed cells are grey`);
    const open = [...enclosed.keys()].filter((i) => enclosed[i] === 0);
    const mean = open.reduce((sum, i) => sum + total[i] * area[i], 0) / open.reduce((sum, i) => sum + area[i], 0) / 1000;
    expect(await page.locator(".figures").innerText()).toContain(String(Number(mean.toPrecision(4))));
    expect(Number(await page.getByLabel("Lower end of the colours").inputValue())).toBeCloseTo(Math.min(...open.map((i) => total[i])) / 1000, 2);
    const sensor = enclosed.indexOf(1);
    const hit = await ask(page, (viewer, number) => viewer.describe({ model: viewer.model, sensor: number }), sensor);
    expect(hit.value).toBe("enclosed");
    const lines = (await ask(page, (viewer) => viewer.table())).split("\n");
    expect(lines[0]).toContain(",enclosed,");
    expect(complaints).toEqual([]);
  });

  it("hold as many days as they may weigh, and say so", async () => {
    expect(statSync(resolve(folder, "days/page.html")).size).toBeLessThan(0.6e6);
    const { page, complaints } = await openLive("days/page.html");
    expect(await page.locator("#panel").innerText()).toContain("12 of 365 parts of the period, to keep the page small.");
    const slider = page.getByLabel(/^Part of the period/);
    await slider.fill("2");
    expect(await slider.getAttribute("aria-valuetext")).toBe("31 January"); // the 31st of 365, every 30th
    const table = tableOf(`${folder}/days/sensors.csv`).column("total_01_31");
    const [value, step] = await ask(page, (viewer) => [viewer.column.at(100), viewer.column.step]);
    expect(Math.abs(value - table[100] / 1000)).toBeLessThan(0.51 * step);
    expect(complaints).toEqual([]);
  });
});

describe("other pages", () => {
  it("of hostile names stay whole", async () => {
    const { page, complaints } = await openLive("hostile/page.html");
    expect(await page.evaluate(() => window.broken)).toBeUndefined();
    expect(await page.locator("tbody tr").count()).toBe(7);
    expect(await page.locator("tbody").innerText()).toContain("</script><script>");
    expect(await page.locator("img").count()).toBe(1); // the picture for browsers without WebGL
    const lines = (await ask(page, (viewer) => viewer.table())).split("\n");
    expect(lines.some((line) => /(^|,)(=|-\d+\+)/.test(line))).toBe(false);
    await shot(page, "hostile");
    expect(complaints).toEqual([]);
  });

  it.each(["plane", "points", "bare"])("of %s are drawn", async (name) => {
    const { page, complaints } = await openLive(`${name}/page.html`);
    const count = await ask(page, (viewer) => {
      viewer.view.look(180, 89);
      let hits = 0;
      for (let x = 5; x < viewer.view.canvas.clientWidth; x += 40) {
        for (let y = 5; y < viewer.view.canvas.clientHeight; y += 40) {
          hits += viewer.view.pick(x, y) ? 1 : 0;
        }
      }
      return hits;
    });
    expect(count).toBeGreaterThan(name === "plane" ? 60 : 1);
    if (name !== "plane") {
      const words = await ask(page, (viewer) => viewer.describe({ model: viewer.model, sensor: 2 }).lines[0]);
      expect(words).toMatch(name === "points" ? /^faces south, tilt 90°$/ : /^peak/); // no normal, no orientation
    }
    await shot(page, name);
    expect(complaints).toEqual([]);
  });

  it.skipIf(!existsSync(resolve(folder, "lyon/page.html")))("of Lyon are drawn", async () => {
    const { page, complaints } = await openLive("lyon/page.html");
    await ask(page, (viewer) => viewer.setMoment(172, 8 * 60));
    await shot(page, "lyon");
    expect(complaints).toEqual([]);
  });

  it("say what is missing on old browsers and machines", async () => {
    for (const missing of ["WebGL 2", "too old"]) {
      const { page } = await open("courtyard/page.html", {}, missing);
      await expect.poll(() => page.locator("#reason").innerText()).toContain(missing);
      expect(await page.locator("#plain img").isVisible()).toBe(true);
      await shot(page, `plain-${missing === "too old" ? "browser" : "machine"}`);
    }
  });
});
