/// The hours of a cell: every hour of the year as a carpet, the mean day, the steps of the period.
import uPlot from "uplot";
import { colorAt, colorTable, ticks } from "./colors";
import { monthStarts, numberText } from "./format";

function style(name: string): string {
  return getComputedStyle(document.documentElement).getPropertyValue(name).trim();
}

/// Days from left to right, hours from below upwards.
export function drawCarpet(canvas: HTMLCanvasElement, hours: Float32Array): void {
  const days = Math.floor(hours.length / 24);
  const table = colorTable("sequential");
  const highest = hours.reduce((a, b) => Math.max(a, b), 1);
  const image = new ImageData(days, 24);
  for (let day = 0; day < days; ++day) {
    for (let hour = 0; hour < 24; ++hour) {
      const color = colorAt(hours[24 * day + hour] / highest, table);
      image.data.set([...color, 255], 4 * ((23 - hour) * days + day));
    }
  }
  const sheet = document.createElement("canvas");
  sheet.width = days;
  sheet.height = 24;
  sheet.getContext("2d")?.putImageData(image, 0, 0);
  const ratio = window.devicePixelRatio || 1;
  const width = canvas.clientWidth || 280;
  const height = canvas.clientHeight || 110;
  canvas.width = Math.round(width * ratio);
  canvas.height = Math.round(height * ratio);
  const context = canvas.getContext("2d");
  if (!context) {
    return;
  }
  context.scale(ratio, ratio);
  const left = 22;
  const bottom = 15;
  context.imageSmoothingEnabled = false;
  context.drawImage(sheet, left, 0, width - left, height - bottom);
  context.fillStyle = style("--soft");
  context.font = "10px system-ui, sans-serif";
  context.textBaseline = "middle";
  context.textAlign = "right";
  for (const hour of [6, 12, 18]) {
    context.fillText(String(hour), left - 4, (height - bottom) * (1 - hour / 24));
  }
  context.textAlign = "center";
  for (let month = 0; month < 12; ++month) {
    const x = left + ((width - left) * (monthStarts[month] + 14)) / 365;
    context.fillText("JFMAMJJASOND"[month], x, height - 6);
  }
}

/// The mean of each hour of the day.
/// @param hours of the year, 0 where they are not of the period
/// @param days of the period
export function meanDay(hours: Float32Array, days: number): number[] {
  const sums = new Array<number>(24).fill(0);
  for (let i = 0; i < hours.length; ++i) {
    sums[i % 24] += hours[i];
  }
  return sums.map((sum) => sum / days);
}

interface ChartOptions {
  /// Names along the axis below; numbers without.
  names?: string[];
  unit: string;
  width: number;
  bars: boolean;
  label: string;
}

export function chart(place: HTMLElement, values: number[], options: ChartOptions): uPlot {
  const soft = style("--soft");
  const grid = style("--line");
  const accent = style("--accent");
  const axis = { stroke: soft, grid: { stroke: grid, width: 1 }, ticks: { show: false }, font: "10px system-ui" };
  const xs = values.map((_, i) => i);
  // Names side by side need some width: a letter of a month a quarter of what a date takes.
  const longest = Math.max(...(options.names ?? []).map((name) => name.length), 1);
  const every = Math.ceil((xs.length * (8 + 6 * longest)) / (options.width - 40));
  const highest = Math.max(...values, 1e-9);
  const plot = new uPlot(
    {
      width: options.width,
      height: 118,
      padding: [8, 4, 0, 0],
      legend: { show: false },
      cursor: { y: false, drag: { x: false, y: false } },
      scales: {
        x: { time: false, range: [-0.6, values.length - 0.4] },
        y: { range: [0, highest * 1.06] },
      },
      axes: [
        {
          ...axis,
          size: 22,
          gap: 2,
          grid: { show: false },
          splits: options.names ? () => xs.filter((i) => i % every === 0) : () => [0, 6, 12, 18],
          values: (_, splits) => splits.map((i) => options.names?.[i] ?? `${i}`),
        },
        {
          ...axis,
          size: 38,
          gap: 4,
          splits: () => ticks(0, highest, 3),
          values: (_, splits) => splits.map((v) => numberText(v, 3)),
        },
      ],
      series: [
        {},
        {
          label: options.label,
          stroke: accent,
          fill: options.bars ? accent : `${accent}33`,
          width: options.bars ? 0 : 1.6,
          points: { show: false },
          paths: options.bars ? uPlot.paths.bars?.({ size: [0.7, 40] }) : uPlot.paths.spline?.(),
        },
      ],
    },
    [xs, values],
    place,
  );
  plot.root.setAttribute("role", "img");
  const peak = values.indexOf(Math.max(...values));
  plot.root.setAttribute(
    "aria-label",
    `${options.label}: highest ${numberText(values[peak], 3)} ${options.unit} at ${options.names?.[peak] ?? `${peak} h`}`,
  );
  return plot;
}
