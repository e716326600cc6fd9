/// The programs of the graphics card. Values lie in textures of whole numbers, `width` to a row.

export const width = 2048;

/// The cell at a place of a grid, and what hides a fragment.
const common = /* glsl */ `
uniform vec4 section;      // what lies beyond this plane is cut off
uniform bool sectionOn;
in vec3 world;
bool isCut() { return sectionOn && dot(section.xyz, world) > section.w; }
`;

const cellLookup = /* glsl */ `
uniform highp usampler2D states;   // 1 hidden, 2 muted
flat in ivec3 grid;                // first texel, columns, rows
in vec2 within;
int texelOf() {
  ivec2 at = clamp(ivec2(floor(within)), ivec2(0), grid.yz - 1);
  return grid.x + at.y * grid.y + at.x;
}
uint fetch(highp usampler2D table, int texel) {
  return texelFetch(table, ivec2(texel & ${width - 1}, texel / ${width}), 0).r;
}
`;

/// Whether the sun reaches a point. Surfaces stand half the shadow map's grain before themselves.
export const shadowCode = /* glsl */ `
uniform highp sampler2DShadow shadowMap;
uniform mat4 shadowMatrix;
uniform vec3 sunDirection;
uniform float shadowGrain;   // size of a texel of the map in metres
float sunlight(vec3 point, vec3 normal) {
  float facing = dot(normal, sunDirection);
  if (facing <= 0.0 || sunDirection.z <= 0.0) { return 0.0; }
  vec3 raised = point + normal * shadowGrain * (0.6 + 0.6 * (1.0 - facing));
  vec4 place = shadowMatrix * vec4(raised, 1.0);
  vec3 at = place.xyz * 0.5 + 0.5;
  if (any(lessThan(at, vec3(0.0))) || any(greaterThan(at, vec3(1.0)))) { return 1.0; }
  return texture(shadowMap, at);
}
`;

export const cellVertex = /* glsl */ `
in vec2 place;
in ivec3 lookup;
flat out ivec3 grid;
out vec2 within;
out vec3 world;
void main() {
  grid = lookup;
  within = place;
  world = position;
  gl_Position = projectionMatrix * viewMatrix * vec4(position, 1.0);
}
`;

export const cellFragment = /* glsl */ `
precision highp float;
precision highp int;
${common}
${cellLookup}
${shadowCode}
uniform highp usampler2D levels;
uniform sampler2D colors;
uniform float offset;      // value = offset + level * unit
uniform float unit;
uniform vec2 ends;         // of the colours
uniform float steps;
uniform vec2 shownRange;   // values outside it are muted
uniform vec3 muted;
uniform vec3 missing;
uniform vec3 lines;
uniform bool sunOn;
out vec4 color;
void main() {
  if (isCut()) { discard; }
  int texel = texelOf();
  uint state = fetch(states, texel);
  if ((state & 1u) != 0u) { discard; }
  uint level = fetch(levels, texel);
  vec3 paint = missing;
  if (level != 65535u) {
    float value = offset + float(level) * unit;
    float t = clamp((value - ends.x) / max(ends.y - ends.x, 1e-30), 0.0, 1.0);
    if (steps >= 2.0) { t = min(floor(t * steps), steps - 1.0) / (steps - 1.0); }
    paint = texelFetch(colors, ivec2(int(t * 255.0 + 0.5), 0), 0).rgb;
    if (value < shownRange.x || value > shownRange.y) { state |= 2u; }
  }
  if ((state & 2u) != 0u) { paint = muted; }
  vec3 normal = normalize(cross(dFdx(world), dFdy(world)));
  if (sunOn) { paint *= mix(vec3(0.50, 0.52, 0.60), vec3(1.0), sunlight(world, normal)); }
  // Seen from near, cells have edges.
  vec2 grain = fwidth(within);
  if (grid.y * grid.z > 1 && max(grain.x, grain.y) < 0.06) {
    vec2 edge = abs(fract(within + 0.5) - 0.5) / max(grain, vec2(1e-6));
    float near = 1.0 - smoothstep(0.4, 1.1, min(edge.x, edge.y));
    paint = mix(paint, lines, 0.28 * near * (1.0 - smoothstep(0.035, 0.06, max(grain.x, grain.y))));
  }
  color = vec4(paint, 1.0);
}
`;

export const sceneVertex = /* glsl */ `
out vec3 world;
void main() {
  world = position;
  gl_Position = projectionMatrix * viewMatrix * vec4(position, 1.0);
}
`;

export const sceneFragment = /* glsl */ `
precision highp float;
${common}
${shadowCode}
uniform vec3 light;      // towards a soft light
uniform vec3 bright;
uniform vec3 dim;
uniform bool sunOn;
out vec4 color;
void main() {
  if (isCut()) { discard; }
  vec3 normal = normalize(cross(dFdx(world), dFdy(world)));
  vec3 paint = mix(dim, bright, 0.5 + 0.5 * dot(normal, light));
  if (sunOn) { paint *= mix(vec3(0.58, 0.60, 0.67), vec3(1.0), sunlight(world, normal)); }
  color = vec4(paint, 1.0);
}
`;

export const lineFragment = /* glsl */ `
precision highp float;
${common}
uniform vec4 ink;
out vec4 color;
void main() {
  if (isCut()) { discard; }
  color = ink;
}
`;

/// The number of a cell as a colour; 0 for all else.
export const pickFragment = /* glsl */ `
precision highp float;
precision highp int;
${common}
${cellLookup}
out vec4 color;
void main() {
  if (isCut()) { discard; }
  int texel = texelOf();
  if ((fetch(states, texel) & 1u) != 0u) { discard; }
  uint number = uint(texel) + 1u;
  color = vec4(uvec4(number, number >> 8, number >> 16, number >> 24) & 255u) / 255.0;
}
`;

export const pickSceneFragment = /* glsl */ `
precision highp float;
${common}
out vec4 color;
void main() {
  if (isCut()) { discard; }
  color = vec4(0.0);
}
`;

export const depthFragment = /* glsl */ `
precision highp float;
in vec3 world;
out vec4 color;
void main() { color = vec4(1.0); }
`;

/// The sun at single points: one pixel for each, in rows of `width`.
export const litVertex = /* glsl */ `
in vec3 facing;
in float number;
uniform float rows;
flat out vec3 point;
flat out vec3 surface;
void main() {
  point = position;
  surface = facing;
  float row = floor(number / ${width}.0);
  gl_Position = vec4((number - row * ${width}.0 + 0.5) / ${width / 2}.0 - 1.0, (row + 0.5) / rows * 2.0 - 1.0, 0.0, 1.0);
  gl_PointSize = 1.0;
}
`;

export const litFragment = /* glsl */ `
precision highp float;
${shadowCode}
flat in vec3 point;
flat in vec3 surface;
out vec4 color;
void main() { color = vec4(vec3(sunlight(point, surface)), 1.0); }
`;
