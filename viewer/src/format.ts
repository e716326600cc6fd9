/// Numbers and dates as people read them.

const months = [
  "January", "February", "March", "April", "May", "June",
  "July", "August", "September", "October", "November", "December",
];
const lengths = [31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31];

/// "21 June" of a day of the year, 1..365.
export function dayText(day: number, short = false): string {
  let rest = day - 1;
  let month = 0;
  while (month < 11 && rest >= lengths[month]) {
    rest -= lengths[month++];
  }
  return `${rest + 1} ${short ? months[month].slice(0, 3) : months[month]}`;
}

/// First days of the months, 1..365.
export const monthStarts = lengths.map((_, i) => 1 + lengths.slice(0, i).reduce((a, b) => a + b, 0));
export const monthNames = months;

/// "14:05" of a minute of the day.
export function timeText(minute: number): string {
  const whole = Math.round(minute);
  const hours = Math.floor(whole / 60);
  return `${hours}:${String(whole - 60 * hours).padStart(2, "0")}`;
}

/// "28 June, 12:00 to 13:00" of an hour of the year, 1..8,760, counted by its end.
export function hourOfYearText(hour: number): string {
  const start = (hour - 1) % 24;
  return `${dayText(Math.floor((hour - 1) / 24) + 1)}, ${start}:00 to ${start + 1}:00`;
}

/// Four significant digits, thousands apart: "10,515", "0.5526".
export function numberText(value: number, digits = 4): string {
  if (!Number.isFinite(value)) {
    return "–";
  }
  const size = Math.abs(value);
  const decimals = size === 0 ? 0 : Math.max(0, digits - 1 - Math.floor(Math.log10(size)));
  return fixedText(value, Math.min(decimals, 8));
}

/// So many decimals, thousands apart.
export function fixedText(value: number, decimals: number): string {
  const [whole, part] = Math.abs(value).toFixed(decimals).split(".");
  const grouped = whole.replace(/\B(?=(\d{3})+$)/g, ",");
  return (value < 0 ? "−" : "") + grouped + (part ? `.${part}` : "");
}

/// The unit of sums over areas that suits the largest of them, and what a kWh is in it.
export function energyUnit(most: number): { unit: string; factor: number } {
  const size = Math.abs(most);
  return size < 1e4 ? { unit: "kWh", factor: 1 } : size < 1e7 ? { unit: "MWh", factor: 1e-3 } : { unit: "GWh", factor: 1e-6 };
}

/// A mean over areas: of answers the share that says yes, none of dates.
export function meanText(mean: number, unit: string): string {
  if (!Number.isFinite(mean) || unit === "day of year") {
    return "–";
  }
  return unit === "0 or 1" ? `${(100 * mean).toFixed(1)} %` : isNumber(unit) ? numberText(mean) : valueText(mean, unit, 0);
}

/// "kWh/m²"; nothing where the value says by itself what it is.
export function unitText(unit: string): string {
  return isNumber(unit) ? unit.replace("m2", "m²") : "";
}

/// Whether values of a unit are read as numbers: dates, times of the clock and answers are not.
export function isNumber(unit: string): boolean {
  return !/^(hour of year|day of year|0 or 1|h of UTC.*)$/.test(unit);
}

/// A value as people read it: "812.3", "21 June", "9:05", "yes".
export function valueText(value: number, unit: string, decimals: number): string {
  if (isNumber(unit)) {
    return value === 0 ? "0" : value.toFixed(decimals);
  }
  if (unit === "hour of year") {
    return value > 0 ? hourOfYearText(value) : "never";
  }
  if (unit === "day of year") {
    return dayText(value);
  }
  return unit === "0 or 1" ? (value > 0.5 ? "yes" : "no") : timeText(60 * value);
}

export function bearingText(azimuth: number): string {
  const names = ["north", "northeast", "east", "southeast", "south", "southwest", "west", "northwest"];
  return names[Math.round((((azimuth % 360) + 360) % 360) / 45) % 8];
}

/// A name as a field of a table that no spreadsheet takes for a formula, study/output/text.cpp line by line.
export function csvField(text: string): string {
  const safe = /^[=+\-@\t\r]/.test(text) ? `'${text}` : text;
  return /[",\n\r]/.test(safe) ? `"${safe.replace(/"/g, '""')}"` : safe;
}

/// The part of the period in a step's title: "Total radiation, 1 June to 31 August" ends with it.
export function partText(title: string): string {
  return title.slice(title.indexOf(", ") + 1).trim();
}

/// Below a chart's bar: "J" for "total_jun", "6/21" for "total_06_21" and "sun_2025_06_21", "jun–aug"
/// for a season.
export function partShort(name: string): string {
  const part = name.slice(name.indexOf("_") + 1).replace(/^\d{4}_/, "");
  const [first, second] = part.split("_");
  if (/^[a-z]/.test(part)) {
    return /^[a-z]/.test(second ?? "") ? `${first}–${second}` : first.slice(0, 1).toUpperCase();
  }
  return `${Number(first)}/${Number(second)}`;
}
