/// What the tests look at: pages that the command has made, and the tables beside them.
import { readFileSync } from "node:fs";
import { inflateSync } from "node:zlib";
import { Result } from "../src/packing";

/// Folder with results of the demo and of city models; './dev test page' makes it.
export const folder = process.env.INSOLATE_PAGE_RESULTS ?? "../out/page-tests";

export const command = process.env.INSOLATE_COMMAND ?? "../build/bin/insolate";

export function resultOf(page: string, number = 0): Result {
  return new Result(dataOf(page, number));
}

/// The unpacked bytes of a result.
export function dataOf(page: string, number = 0): ArrayBuffer {
  const text = readFileSync(page, "utf8");
  const match = new RegExp(`id="result${number}">([A-Za-z0-9+/=]*)<`).exec(text);
  if (!match) {
    throw new Error(`${page} has no result ${number}`);
  }
  const bytes = inflateSync(Buffer.from(match[1], "base64"));
  const buffer = new ArrayBuffer(bytes.length);
  new Uint8Array(buffer).set(bytes);
  return buffer;
}

export interface Table {
  rows: number;
  /// By name without unit.
  column(name: string): Float64Array;
}

/// A table whose fields hold no commas, as those of numbers do.
export function tableOf(file: string): Table {
  const lines = readFileSync(file, "utf8").trimEnd().split("\n");
  const heads = lines[0].split(",").map((head) => head.replace(/ \[.*\]$/, ""));
  const fields = lines.slice(1).map((line) => line.split(","));
  return {
    rows: fields.length,
    column: (name) => {
      const index = heads.indexOf(name);
      if (index < 0) {
        throw new Error(`${file} has no column ${name}`);
      }
      return Float64Array.from(fields, (row) => Number(row[index]));
    },
  };
}
