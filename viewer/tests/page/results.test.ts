import { execFileSync } from "node:child_process";
import { existsSync, readFileSync, statSync } from "node:fs";
import { resolve } from "node:path";
import { afterAll, describe, expect, it } from "vitest";
import { command, folder, tableOf } from "../pages";
import { ask, close, open, openLive, shot } from "./browser";

afterAll(close);

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
    const sum = groups.slice(1).reduce((all, row) => all + Number(row[at]) + Number(row[at + 1]) + Number(row[at + 2]) + Number(row[at + 3]), 0);
    expect(hours.count).toBe((groups[0].length - 2) / 4); // beam, sky, ground and reflected of each
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
    const isEnclosed = Array.from(table.column("enclosed"), (flag) => flag === 1);
    expect(shown.map((hours) => !Number.isFinite(hours))).toEqual(isEnclosed);
    const off = shown.map((hours, i) => (isEnclosed[i] ? 0 : Math.abs(hours - winter[i] / 60)));
    expect(Math.max(...off)).toBeLessThan(0.51 * fine);
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
