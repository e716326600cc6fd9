// Bundles the viewer into dist/viewer.js: one script without imports. The same sources give the same
// bytes on every machine.
import { build } from "esbuild";
import { readFileSync, writeFileSync, mkdirSync } from "node:fs";

const bundled = ["three", "uplot"];
const licences = bundled
  .map((name) => {
    const folder = `node_modules/${name}`;
    const { version } = JSON.parse(readFileSync(`${folder}/package.json`, "utf8"));
    return `${name} ${version}\n\n${readFileSync(`${folder}/LICENSE`, "utf8").trim()}\n`;
  })
  .join("\n----------\n\n");

mkdirSync("dist", { recursive: true });
writeFileSync("dist/licences.txt", licences);
await build({
  entryPoints: ["src/main.ts"],
  outfile: process.argv[2] ?? "dist/viewer.js",
  bundle: true,
  minify: true,
  format: "iife",
  target: "es2020",
  charset: "ascii",
  legalComments: "none",
  loader: { ".css": "text", ".txt": "text" },
  logLevel: "warning",
});
