import { defineConfig } from "vitest/config";

export default defineConfig({
  test: {
    // A browser that draws without a graphics card, on a machine that does other things.
    testTimeout: 180_000,
    hookTimeout: 180_000,
    maxWorkers: 2,
    minWorkers: 1,
  },
});
