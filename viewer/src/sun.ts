/// The sun from the kernel's declination and equation of time at midnight UTC of each day.
import type { Site } from "./packing";

export interface Sun {
  /// Degrees clockwise from true north.
  azimuth: number;
  /// Degrees above the horizon, with refraction.
  altitude: number;
}

const degrees = Math.PI / 180;

/// Refraction of the standard atmosphere [degrees]: Saemundsson (1986), Sky and Telescope 72, 70.
function refraction(altitude: number): number {
  if (altitude < -1) {
    return 0;
  }
  return 1.02 / Math.tan((altitude + 10.3 / (altitude + 5.11)) * degrees) / 60;
}

export class SunPath {
  constructor(
    private readonly site: Site,
    /// By day of the year, the last day of the year before first.
    private readonly declination: Float32Array,
    private readonly equation: Float32Array,
  ) {}

  /// @param day of the year, 1..365
  /// @param minute of the day by the site's clock, without daylight saving
  at(day: number, minute: number): Sun {
    const utcDays = day + (minute / 60 - this.site.timeZone) / 24; // 1 is midnight of 1 January
    const place = Math.min(Math.max(utcDays, 0), this.declination.length - 2);
    const i = Math.floor(place);
    const mix = (table: Float32Array): number => table[i] + (table[i + 1] - table[i]) * (place - i);
    const declination = mix(this.declination) * degrees;
    const solarMinutes =
      minute - 60 * this.site.timeZone + 4 * this.site.longitude + mix(this.equation);
    const hourAngle = ((solarMinutes - 720) / 4) * degrees;
    const latitude = this.site.latitude * degrees;
    const east = -Math.cos(declination) * Math.sin(hourAngle);
    const north =
      Math.sin(declination) * Math.cos(latitude) -
      Math.cos(declination) * Math.cos(hourAngle) * Math.sin(latitude);
    const up =
      Math.sin(declination) * Math.sin(latitude) +
      Math.cos(declination) * Math.cos(hourAngle) * Math.cos(latitude);
    const altitude = Math.asin(Math.min(Math.max(up, -1), 1)) / degrees;
    const azimuth = (Math.atan2(east, north) / degrees + 360) % 360;
    return { azimuth, altitude: altitude + refraction(altitude) };
  }

  /// Minutes of the clock at which the sun's upper edge rises and sets; null where it does neither.
  times(day: number): { rise: number; set: number } | null {
    let rise: number | null = null;
    let set: number | null = null;
    const isUp = (minute: number): boolean => this.at(day, minute).altitude > -0.2667;
    const between = (from: number, to: number): number => {
      const before = isUp(from);
      for (let k = 0; k < 12; ++k) {
        const middle = 0.5 * (from + to);
        if (isUp(middle) === before) {
          from = middle;
        } else {
          to = middle;
        }
      }
      return to;
    };
    for (let minute = -120; minute < 1560; minute += 10) {
      const now = isUp(minute);
      const then = isUp(minute + 10);
      if (!now && then && rise === null) {
        rise = between(minute, minute + 10);
      }
      if (now && !then && rise !== null) {
        set = between(minute, minute + 10);
      }
    }
    return rise !== null && set !== null ? { rise, set } : null;
  }
}

/// Towards the sun in model axes: x, y, z.
export function directionOf(sun: Sun, north: number): [number, number, number] {
  const azimuth = (sun.azimuth + north) * degrees;
  const level = Math.cos(sun.altitude * degrees);
  return [level * Math.sin(azimuth), level * Math.cos(azimuth), Math.sin(sun.altitude * degrees)];
}
