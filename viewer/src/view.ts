/// The model on the screen: cells, surroundings, sun, cameras. Draws only when something has changed.
import * as THREE from "three";
import { OrbitControls } from "three/examples/jsm/controls/OrbitControls.js";
import { colorTable, type Scale } from "./colors";
import { type Column, cornersOf, none, normalOf, noSide, type Result } from "./packing";
import * as code from "./shaders";
import { directionOf, type Sun } from "./sun";

THREE.ColorManagement.enabled = false;

export interface Theme {
  background: string;
  bright: string;
  dim: string;
  muted: string;
  missing: string;
  line: string;
  lineOpacity: number;
  cellLine: string;
}

export interface Section {
  axis: "x" | "y" | "z";
  /// 0..1 of the model's extent.
  place: number;
  flipped: boolean;
}

export type Surroundings = "solid" | "lines" | "none";

const shadowSize = 2048;
const up = new THREE.Vector3(0, 0, 1);

function rgb(color: string): THREE.Vector3 {
  const c = new THREE.Color(color);
  return new THREE.Vector3(c.r, c.g, c.b);
}

function wholeNumbers(data: Uint16Array | Uint8Array, texels: number): THREE.DataTexture {
  const rows = Math.max(1, Math.ceil(texels / code.width));
  const is16 = data instanceof Uint16Array;
  const texture = new THREE.DataTexture(
    data,
    code.width,
    rows,
    THREE.RedIntegerFormat,
    is16 ? THREE.UnsignedShortType : THREE.UnsignedByteType,
  );
  texture.internalFormat = is16 ? "R16UI" : "R8UI";
  texture.unpackAlignment = 1;
  texture.needsUpdate = true;
  return texture;
}

function shader(
  vertexShader: string,
  fragmentShader: string,
  uniforms: Record<string, THREE.IUniform>,
  more: THREE.ShaderMaterialParameters = {},
): THREE.ShaderMaterial {
  return new THREE.ShaderMaterial({
    glslVersion: THREE.GLSL3,
    vertexShader,
    fragmentShader,
    uniforms,
    ...more,
  });
}

/// One result as it is drawn.
export class ModelView {
  readonly scene = new THREE.Scene();
  readonly picking = new THREE.Scene();
  readonly casting = new THREE.Scene();
  readonly box = new THREE.Box3();
  readonly levels: Uint16Array;
  readonly states: Uint8Array;
  column: Column | null = null;
  private readonly levelTexture: THREE.DataTexture;
  private readonly stateTexture: THREE.DataTexture;
  private readonly own: Record<string, THREE.IUniform>;
  private readonly sceneGeometry = new THREE.BufferGeometry();
  private readonly edgeGeometry = new THREE.BufferGeometry();
  private readonly sceneMeshes: THREE.Object3D[] = [];
  private readonly edges: THREE.LineSegments;
  private readonly outline: THREE.LineLoop;
  private hiddenPairs: boolean[] = [];

  constructor(
    readonly result: Result,
    shared: Record<string, THREE.IUniform>,
    /// Of the first result: results of one place stand where they are to each other.
    readonly shift: THREE.Vector3,
  ) {
    const { cells, scene } = result;
    const rows = Math.max(1, Math.ceil(cells.texels / code.width));
    this.levels = new Uint16Array(rows * code.width).fill(0xffff);
    this.states = new Uint8Array(rows * code.width);
    if (cells.sensorOfTexel) {
      cells.sensorOfTexel.forEach((sensor, texel) => {
        this.states[texel] = sensor === none ? 1 : 0;
      });
    }
    this.levelTexture = wholeNumbers(this.levels, cells.texels);
    this.stateTexture = wholeNumbers(this.states, cells.texels);
    this.own = {
      ...shared,
      levels: { value: this.levelTexture },
      states: { value: this.stateTexture },
      offset: { value: 0 },
      unit: { value: 1 },
      colors: { value: null },
      ends: { value: new THREE.Vector2(0, 1) },
      steps: { value: 0 },
      shownRange: { value: new THREE.Vector2(-3e38, 3e38) },
    };
    const moved = (positions: Float32Array): Float32Array => {
      const copy = new Float32Array(positions.length);
      for (let i = 0; i < copy.length; i += 3) {
        copy[i] = positions[i] + shift.x;
        copy[i + 1] = positions[i + 1] + shift.y;
        copy[i + 2] = positions[i + 2] + shift.z;
      }
      return copy;
    };

    const cellGeometry = new THREE.BufferGeometry();
    cellGeometry.setAttribute("position", new THREE.BufferAttribute(moved(cells.mesh.position), 3));
    cellGeometry.setAttribute("place", new THREE.BufferAttribute(cells.mesh.place, 2));
    const lookup = new THREE.BufferAttribute(cells.mesh.lookup, 3);
    lookup.gpuType = THREE.IntType;
    cellGeometry.setAttribute("lookup", lookup);
    cellGeometry.setIndex(new THREE.BufferAttribute(cells.mesh.index, 1));
    cellGeometry.computeBoundingBox();
    if (cellGeometry.boundingBox && cells.count > 0) {
      this.box.copy(cellGeometry.boundingBox);
    }
    const cellSide = cells.hasAreas ? THREE.FrontSide : THREE.DoubleSide;
    const offset = { polygonOffset: true, polygonOffsetFactor: 1, polygonOffsetUnits: 1 };
    const add = (to: THREE.Scene, object: THREE.Object3D): THREE.Object3D => {
      object.frustumCulled = false;
      object.matrixAutoUpdate = false;
      to.add(object);
      return object;
    };
    add(
      this.scene,
      new THREE.Mesh(
        cellGeometry,
        shader(code.cellVertex, code.cellFragment, this.own, { side: cellSide, ...offset }),
      ),
    );
    add(
      this.picking,
      new THREE.Mesh(
        cellGeometry,
        shader(code.cellVertex, code.pickFragment, this.own, { side: cellSide, ...offset }),
      ),
    );

    const position = new THREE.BufferAttribute(moved(scene.position), 3);
    this.sceneGeometry.setAttribute("position", position);
    this.sceneGeometry.setIndex(new THREE.BufferAttribute(scene.index, 1));
    this.edgeGeometry.setAttribute("position", position);
    this.edgeGeometry.setIndex(new THREE.BufferAttribute(scene.edges, 1));
    const behind = { polygonOffset: true, polygonOffsetFactor: 2, polygonOffsetUnits: 4 };
    const both = { side: THREE.DoubleSide };
    if (scene.index.length > 0) {
      this.sceneMeshes.push(
        add(
          this.scene,
          new THREE.Mesh(
            this.sceneGeometry,
            shader(code.sceneVertex, code.sceneFragment, this.own, { ...both, ...behind }),
          ),
        ),
        add(
          this.picking,
          new THREE.Mesh(
            this.sceneGeometry,
            shader(code.sceneVertex, code.pickSceneFragment, this.own, { ...both, ...behind }),
          ),
        ),
      );
      this.sceneGeometry.computeBoundingBox();
      if (cells.count === 0 && this.sceneGeometry.boundingBox) {
        this.box.copy(this.sceneGeometry.boundingBox);
      }
      // Shadows are the whole scene's, whatever of it is shown.
      const whole = new THREE.BufferGeometry();
      whole.setAttribute("position", position);
      whole.setIndex(new THREE.BufferAttribute(scene.index, 1));
      add(this.casting, new THREE.Mesh(whole, shader(code.sceneVertex, code.depthFragment, {}, both)));
    } else {
      add(
        this.casting,
        new THREE.Mesh(cellGeometry, shader(code.sceneVertex, code.depthFragment, {}, both)),
      );
    }
    this.edges = new THREE.LineSegments(
      this.edgeGeometry,
      shader(
        code.sceneVertex,
        code.lineFragment,
        { ...this.own, ink: shared.edgeInk },
        { transparent: true, depthWrite: false },
      ),
    );
    add(this.scene, this.edges);
    this.outline = new THREE.LineLoop(
      new THREE.BufferGeometry(),
      shader(
        code.sceneVertex,
        code.lineFragment,
        { ...this.own, ink: shared.pinInk },
        { transparent: true, depthTest: false },
      ),
    );
    this.outline.visible = false;
    this.outline.renderOrder = 2;
    add(this.scene, this.outline);
  }

  sensorAt(texel: number): number {
    const { sensorOfTexel } = this.result.cells;
    return sensorOfTexel ? sensorOfTexel[texel] : texel;
  }

  showColumn(column: Column): void {
    this.column = column;
    const { sensorOfTexel } = this.result.cells;
    if (sensorOfTexel) {
      sensorOfTexel.forEach((sensor, texel) => {
        this.levels[texel] = sensor === none ? 0xffff : column.levels[sensor];
      });
    } else {
      this.levels.set(column.levels);
    }
    this.levelTexture.needsUpdate = true;
    this.own.offset.value = column.offset * column.step;
    this.own.unit.value = column.step;
  }

  /// @param colors 256 colours
  paint(scale: Scale, colors: THREE.Texture, range: [number, number] | null): void {
    this.own.colors.value = colors;
    this.own.ends.value.set(scale.lowest, scale.highest);
    this.own.steps.value = scale.steps;
    // Values are multiples of the step in single precision: half a step is no value's distance.
    const slack = 0.25 * (this.column?.step ?? 0);
    this.own.shownRange.value.set(range ? range[0] - slack : -3e38, range ? range[1] + slack : 3e38);
  }

  /// @param stateOf by sensor: 0 shown, 1 hidden, 2 muted
  /// @param isHidden by object and material
  setStates(stateOf: Uint8Array, isHidden: (object: number, material: number) => boolean): void {
    const { sensorOfTexel } = this.result.cells;
    if (sensorOfTexel) {
      sensorOfTexel.forEach((sensor, texel) => {
        this.states[texel] = sensor === none ? 1 : stateOf[sensor];
      });
    } else {
      this.states.set(stateOf);
    }
    this.stateTexture.needsUpdate = true;
    this.hideSurroundings(isHidden);
  }

  /// Leaves what is hidden out of the triangles and edges, which are handed over only when they change.
  private hideSurroundings(isHidden: (object: number, material: number) => boolean): void {
    const { index, edges, pairs, triangleObject, edgeObject } = this.result.scene;
    const hidden = [false, ...pairs.map(([object, material]) => isHidden(object, material))];
    if (hidden.every((value, i) => value === (this.hiddenPairs[i] ?? false))) {
      return;
    }
    this.hiddenPairs = hidden;
    const kept = (all: Uint32Array, size: number, objectOf: Uint32Array): Uint32Array => {
      if (!hidden.includes(true)) {
        return all;
      }
      const list = new Uint32Array(all.length);
      let count = 0;
      for (let i = 0; i < objectOf.length; ++i) {
        if (!hidden[objectOf[i]]) {
          for (let k = 0; k < size; ++k) {
            list[count++] = all[size * i + k];
          }
        }
      }
      return list.slice(0, count);
    };
    this.sceneGeometry.setIndex(new THREE.BufferAttribute(kept(index, 3, triangleObject), 1));
    this.edgeGeometry.setIndex(new THREE.BufferAttribute(kept(edges, 2, edgeObject), 1));
  }

  showSurroundings(how: Surroundings): void {
    for (const mesh of this.sceneMeshes) {
      mesh.visible = how === "solid";
    }
    this.edges.visible = how !== "none";
  }

  /// Corners of a cell as it is drawn.
  corners(sensor: number): THREE.Vector3[] {
    return cornersOf(this.result.cells, sensor).map((c) =>
      new THREE.Vector3(c[0], c[1], c[2]).add(this.shift),
    );
  }

  mark(sensor: number | null): void {
    this.outline.visible = sensor !== null;
    if (sensor !== null) {
      this.outline.geometry.dispose();
      this.outline.geometry = new THREE.BufferGeometry().setFromPoints(this.corners(sensor));
    }
  }

  boxOf(isShown: (sensor: number) => boolean): THREE.Box3 {
    const box = new THREE.Box3();
    for (let sensor = 0; sensor < this.result.cells.count; ++sensor) {
      if (isShown(sensor)) {
        for (const corner of this.corners(sensor)) {
          box.expandByPoint(corner);
        }
      }
    }
    return box;
  }
}

export interface Hit {
  model: ModelView;
  sensor: number;
}

export class View {
  readonly models: ModelView[] = [];
  readonly isSoftware: boolean;
  frames = 0;
  onCamera: () => void = () => undefined;
  private readonly renderer: THREE.WebGLRenderer;
  private readonly perspective = new THREE.PerspectiveCamera(32, 1, 0.1, 1000);
  private readonly orthographic = new THREE.OrthographicCamera(-1, 1, 1, -1, 0.1, 1000);
  private camera: THREE.PerspectiveCamera | THREE.OrthographicCamera = this.perspective;
  private readonly controls: OrbitControls;
  private readonly pickTarget = new THREE.WebGLRenderTarget(1, 1);
  private shadowTarget: THREE.WebGLRenderTarget | null = null;
  private readonly sunCamera = new THREE.OrthographicCamera(-1, 1, 1, -1, 0, 1);
  private readonly sunScene = new THREE.Scene();
  private readonly sunInks = {
    path: new THREE.MeshBasicMaterial({ color: 0xe0992a }),
    body: new THREE.MeshBasicMaterial({ color: 0xffb52e }),
    ray: new THREE.LineBasicMaterial({ color: 0xe0992a, transparent: true, opacity: 0.5 }),
    ring: new THREE.LineBasicMaterial({ color: 0x8a8a8a, transparent: true, opacity: 0.5 }),
  };
  private readonly shared: Record<string, THREE.IUniform>;
  private readonly box = new THREE.Box3();
  private readonly whole = new THREE.Box3();
  private shown: number[] = [0];
  private pending = false;
  /// Whose shadows the map holds for the sun as it stands; null: nobody's.
  private shadowsOf: ModelView | null = null;
  private restTimer = 0;
  private lastFrame = 0;
  private north = 0;
  private background = "#ffffff";

  constructor(readonly canvas: HTMLCanvasElement) {
    const probe = document.createElement("canvas").getContext("webgl2");
    const info = probe?.getExtension("WEBGL_debug_renderer_info");
    const name = info ? String(probe?.getParameter(info.UNMASKED_RENDERER_WEBGL)) : "";
    probe?.getExtension("WEBGL_lose_context")?.loseContext();
    this.isSoftware = /swiftshader|llvmpipe|software|basic render/i.test(name);
    this.renderer = new THREE.WebGLRenderer({
      canvas,
      antialias: !this.isSoftware,
      alpha: false,
      powerPreference: "high-performance",
    });
    this.renderer.outputColorSpace = THREE.LinearSRGBColorSpace;
    this.renderer.autoClear = false;
    this.renderer.info.autoReset = false;
    canvas.addEventListener("webglcontextrestored", () => {
      this.shadowsOf = null;
      this.draw();
    });
    this.perspective.up.copy(up);
    this.orthographic.up.copy(up);
    this.controls = new OrbitControls(this.camera, canvas);
    this.controls.zoomToCursor = true;
    this.controls.screenSpacePanning = true;
    this.controls.maxPolarAngle = Math.PI * 0.98;
    this.controls.addEventListener("change", () => {
      this.onCamera();
      this.draw();
    });
    this.shared = {
      section: { value: new THREE.Vector4(0, 0, 1, 0) },
      sectionOn: { value: false },
      light: { value: new THREE.Vector3(-0.45, -0.35, 0.82).normalize() },
      bright: { value: new THREE.Vector3() },
      dim: { value: new THREE.Vector3() },
      muted: { value: new THREE.Vector3() },
      missing: { value: new THREE.Vector3() },
      lines: { value: new THREE.Vector3() },
      edgeInk: { value: new THREE.Vector4(0, 0, 0, 0.3) },
      pinInk: { value: new THREE.Vector4(0, 0, 0, 1) },
      sunOn: { value: false },
      sunDirection: { value: new THREE.Vector3(0, 0, 1) },
      shadowMap: { value: null },
      shadowMatrix: { value: new THREE.Matrix4() },
      shadowGrain: { value: 0.1 },
    };
  }

  /// Results are placed around the middle of the first one.
  add(result: Result): ModelView {
    const first = this.models[0]?.result ?? result;
    const shift = new THREE.Vector3(
      result.centre[0] - first.centre[0],
      result.centre[1] - first.centre[1],
      result.centre[2] - first.centre[2],
    );
    if (this.models.length === 0) {
      this.north = result.record.north;
    }
    const model = new ModelView(result, this.shared, shift);
    this.models.push(model);
    this.box.union(model.box);
    this.whole.union(model.box);
    const scene = new THREE.Box3().setFromArray(result.scene.position);
    if (!scene.isEmpty()) {
      this.whole.union(scene.translate(shift));
    }
    this.shadowsOf = null; // the map spans all models
    return model;
  }

  /// Which of the models stand beside each other.
  show(models: number[]): void {
    this.shown = models;
    this.controls.zoomToCursor = models.length === 1;
    this.resize();
  }

  setTheme(theme: Theme): void {
    this.background = theme.background;
    this.shared.bright.value.copy(rgb(theme.bright));
    this.shared.dim.value.copy(rgb(theme.dim));
    this.shared.muted.value.copy(rgb(theme.muted));
    this.shared.missing.value.copy(rgb(theme.missing));
    this.shared.lines.value.copy(rgb(theme.cellLine));
    const ink = rgb(theme.line);
    this.shared.edgeInk.value.set(ink.x, ink.y, ink.z, theme.lineOpacity);
    this.shared.pinInk.value.set(ink.x, ink.y, ink.z, 1);
    this.draw();
  }

  setSection(section: Section | null): void {
    this.shared.sectionOn.value = section !== null;
    if (section) {
      const { axis, place, flipped } = section;
      const sign = flipped ? -1 : 1;
      const at = this.whole.min[axis] + (this.whole.max[axis] - this.whole.min[axis]) * place;
      this.shared.section.value.set(
        axis === "x" ? sign : 0,
        axis === "y" ? sign : 0,
        axis === "z" ? sign : 0,
        sign * at,
      );
    }
    this.draw();
  }

  sectionPlace(section: Section): number {
    const { axis, place } = section;
    const low = this.whole.min[axis];
    const first = this.models[0].result.centre[{ x: 0, y: 1, z: 2 }[axis]];
    return low + (this.whole.max[axis] - low) * place + (axis === "z" ? first : 0);
  }

  // The sun

  /// @param path directions of the day's course; null takes the sun away
  setSun(sun: Sun | null, path: Sun[], marks: { sun: Sun }[]): void {
    this.shared.sunOn.value = sun !== null;
    for (const object of this.sunScene.children) {
      // The graphics card keeps geometries until they are disposed of. Materials are shared and stay.
      (object as THREE.Mesh | THREE.Line).geometry.dispose();
    }
    this.sunScene.clear();
    if (sun) {
      const direction = new THREE.Vector3(...directionOf(sun, this.north));
      this.shared.sunDirection.value.copy(direction);
      this.shadowsOf = null;
      const middle = this.box.getCenter(new THREE.Vector3());
      middle.z = this.box.min.z;
      const radius = this.domeRadius;
      const at = (s: Sun): THREE.Vector3 =>
        new THREE.Vector3(...directionOf(s, this.north)).multiplyScalar(radius).add(middle);
      const inks = this.sunInks;
      const line = (points: THREE.Vector3[], ink: THREE.Material): void => {
        this.sunScene.add(new THREE.Line(new THREE.BufferGeometry().setFromPoints(points), ink));
      };
      const arc = path.filter((s) => s.altitude >= 0);
      if (arc.length > 1) {
        // Lines are one pixel wide everywhere; a tube shows.
        const curve = new THREE.CatmullRomCurve3(arc.map(at));
        const tube = new THREE.TubeGeometry(curve, arc.length * 2, radius * 0.0035, 6);
        this.sunScene.add(new THREE.Mesh(tube, inks.path));
      }
      const dot = new THREE.SphereGeometry(radius * 0.009, 12, 8);
      for (const mark of marks) {
        if (mark.sun.altitude >= 0) {
          const bead = new THREE.Mesh(dot, inks.path);
          bead.position.copy(at(mark.sun));
          this.sunScene.add(bead);
        }
      }
      if (sun.altitude >= -0.3) {
        const ball = new THREE.SphereGeometry(radius * 0.032, 24, 16);
        const body = new THREE.Mesh(ball, inks.body);
        body.position.copy(at(sun));
        this.sunScene.add(body);
        line([middle, at(sun)], inks.ray);
      }
      const ring: THREE.Vector3[] = [];
      for (let k = 0; k <= 72; ++k) {
        ring.push(at({ azimuth: 5 * k, altitude: 0 }));
      }
      line(ring, inks.ring);
    }
    this.draw();
  }

  private get domeRadius(): number {
    return 0.47 * this.box.getSize(new THREE.Vector3()).length();
  }

  /// The model with the dome on which the sun's path is drawn.
  domeBox(path: Sun[]): THREE.Box3 {
    const middle = this.box.getCenter(new THREE.Vector3());
    middle.z = this.box.min.z;
    const box = this.box.clone();
    for (const sun of path.filter((s) => s.altitude >= 0)) {
      const at = new THREE.Vector3(...directionOf(sun, this.north)).multiplyScalar(1.05 * this.domeRadius);
      box.expandByPoint(at.add(middle));
    }
    return box;
  }

  /// Where a direction of the sky meets the dome on which the sun's path is drawn, on the screen.
  onDome(sun: Sun): { x: number; y: number } | null {
    const middle = this.box.getCenter(new THREE.Vector3());
    middle.z = this.box.min.z;
    const radius = this.domeRadius;
    const point = new THREE.Vector3(...directionOf(sun, this.north)).multiplyScalar(radius);
    return this.toScreen(point.add(middle));
  }

  private shadows(): THREE.WebGLRenderTarget {
    if (!this.shadowTarget) {
      const depth = new THREE.DepthTexture(shadowSize, shadowSize, THREE.UnsignedIntType);
      depth.compareFunction = THREE.LessEqualCompare;
      depth.magFilter = THREE.LinearFilter;
      depth.minFilter = THREE.LinearFilter;
      this.shadowTarget = new THREE.WebGLRenderTarget(shadowSize, shadowSize, {
        depthTexture: depth,
        depthBuffer: true,
      });
    }
    return this.shadowTarget;
  }

  /// The model's scene as the sun sees it, drawn anew when the sun has moved or the map is another model's.
  private drawShadows(model: ModelView): void {
    if (this.shadowsOf === model) {
      return;
    }
    const direction: THREE.Vector3 = this.shared.sunDirection.value;
    const camera = this.sunCamera;
    camera.up.copy(Math.abs(direction.z) > 0.99 ? new THREE.Vector3(0, 1, 0) : up);
    const middle = this.whole.getCenter(new THREE.Vector3());
    camera.position.copy(middle).add(direction);
    camera.lookAt(middle);
    camera.updateMatrixWorld();
    const seen = new THREE.Box3();
    const inverse = camera.matrixWorld.clone().invert();
    for (let k = 0; k < 8; ++k) {
      const corner = new THREE.Vector3(
        k & 1 ? this.whole.max.x : this.whole.min.x,
        k & 2 ? this.whole.max.y : this.whole.min.y,
        k & 4 ? this.whole.max.z : this.whole.min.z,
      );
      seen.expandByPoint(corner.applyMatrix4(inverse));
    }
    const margin = 1e-3 * seen.getSize(new THREE.Vector3()).length();
    camera.left = seen.min.x - margin;
    camera.right = seen.max.x + margin;
    camera.bottom = seen.min.y - margin;
    camera.top = seen.max.y + margin;
    camera.near = -seen.max.z - margin;
    camera.far = -seen.min.z + margin;
    camera.updateProjectionMatrix();
    const grain = Math.max(camera.right - camera.left, camera.top - camera.bottom) / shadowSize;
    this.shared.shadowGrain.value = grain;
    this.shared.shadowMatrix.value.multiplyMatrices(camera.projectionMatrix, inverse);
    const target = this.shadows();
    this.shared.shadowMap.value = null; // not read from while it is drawn
    this.renderer.setRenderTarget(target);
    this.renderer.setClearColor(0xffffff, 1);
    this.renderer.clear(true, true, false);
    this.renderer.render(model.casting, camera);
    this.renderer.setRenderTarget(null);
    this.shared.shadowMap.value = target.depthTexture;
    this.shadowsOf = model;
  }

  /// How much of the sun reaches points, 0..1, by the shadow map that the picture is drawn with.
  /// @param points three coordinates each, as the model file has them
  /// @param normals of length 1, three coordinates each; null: all face upwards
  litAt(points: ArrayLike<number>, normals: ArrayLike<number> | null = null, number = 0): Float32Array {
    const model = this.models[number];
    const centre = this.models[0].result.centre;
    const count = points.length / 3;
    const rows = Math.max(1, Math.ceil(count / code.width));
    this.drawShadows(model);
    const position = new Float32Array(3 * count);
    const facing = new Float32Array(3 * count);
    const numbers = new Float32Array(count);
    for (let i = 0; i < count; ++i) {
      for (let k = 0; k < 3; ++k) {
        position[3 * i + k] = points[3 * i + k] - centre[k];
        facing[3 * i + k] = normals ? normals[3 * i + k] : k === 2 ? 1 : 0;
      }
      numbers[i] = i;
    }
    const geometry = new THREE.BufferGeometry();
    geometry.setAttribute("position", new THREE.BufferAttribute(position, 3));
    geometry.setAttribute("facing", new THREE.BufferAttribute(facing, 3));
    geometry.setAttribute("number", new THREE.BufferAttribute(numbers, 1));
    const material = shader(code.litVertex, code.litFragment, {
      ...this.shared,
      rows: { value: rows },
    }, { depthTest: false, depthWrite: false });
    const scene = new THREE.Scene();
    const object = new THREE.Points(geometry, material);
    object.frustumCulled = false;
    scene.add(object);
    const target = new THREE.WebGLRenderTarget(code.width, rows);
    this.renderer.setRenderTarget(target);
    this.renderer.setClearColor(0x000000, 1);
    this.renderer.clear();
    this.renderer.render(scene, this.camera);
    const pixels = new Uint8Array(4 * code.width * rows);
    this.renderer.readRenderTargetPixels(target, 0, 0, code.width, rows, pixels);
    this.renderer.setRenderTarget(null);
    target.dispose();
    geometry.dispose();
    material.dispose();
    return Float32Array.from({ length: count }, (_, i) => pixels[4 * i] / 255);
  }

  // Cameras

  get isParallel(): boolean {
    return this.camera === this.orthographic;
  }

  private get distance(): number {
    return this.camera.position.distanceTo(this.controls.target);
  }

  /// Metres that the height of the picture shows at the target.
  get height(): number {
    return this.isParallel
      ? (this.orthographic.top - this.orthographic.bottom) / this.orthographic.zoom
      : 2 * this.distance * Math.tan((this.perspective.fov * Math.PI) / 360);
  }

  setParallel(parallel: boolean): void {
    if (parallel === this.isParallel) {
      return;
    }
    const height = this.height;
    const next = parallel ? this.orthographic : this.perspective;
    const direction = this.camera.position.clone().sub(this.controls.target).normalize();
    const distance = parallel
      ? Math.max(this.distance, this.whole.getSize(new THREE.Vector3()).length())
      : height / (2 * Math.tan((this.perspective.fov * Math.PI) / 360));
    next.position.copy(this.controls.target).addScaledVector(direction, distance);
    this.orthographic.zoom = 1;
    this.orthographic.top = height / 2;
    this.orthographic.bottom = -height / 2;
    this.camera = next;
    this.controls.object = next;
    this.controls.update();
    this.resize();
  }

  /// Looks at a box so that it fills the picture.
  /// @param azimuth, altitude of the viewer, degrees, clockwise from true north and above the horizon
  look(azimuth: number, altitude: number, box: THREE.Box3 = this.box): void {
    if (box.isEmpty()) {
      return;
    }
    const centre = box.getCenter(new THREE.Vector3());
    const high = Math.min(Math.max(altitude, -88), 89.9);
    const direction = new THREE.Vector3(
      ...directionOf({ azimuth, altitude: high }, this.north),
    );
    const right = new THREE.Vector3().crossVectors(up, direction).normalize();
    const above = new THREE.Vector3().crossVectors(direction, right);
    const aspect = this.aspect();
    const tangent = Math.tan((this.perspective.fov * Math.PI) / 360);
    const size = box.getSize(new THREE.Vector3()).length();
    const corners = Array.from({ length: 8 }, (_, k) =>
      new THREE.Vector3(
        k & 1 ? box.max.x : box.min.x,
        k & 2 ? box.max.y : box.min.y,
        k & 4 ? box.max.z : box.min.z,
      ),
    );
    // Moves sideways and back until the corners fill the picture evenly.
    let distance = Math.max(size / tangent, 1);
    let tall = 1;
    for (let round = 0; round < 8; ++round) {
      const span = [Infinity, -Infinity, Infinity, -Infinity];
      for (const corner of corners) {
        const from = corner.clone().sub(centre);
        const depth = this.isParallel ? 1 : Math.max(distance - from.dot(direction), 1e-3) * tangent;
        const x = from.dot(right) / depth;
        const y = from.dot(above) / depth;
        span[0] = Math.min(span[0], x);
        span[1] = Math.max(span[1], x);
        span[2] = Math.min(span[2], y);
        span[3] = Math.max(span[3], y);
      }
      const need = Math.max((span[1] - span[0]) / (2 * aspect), (span[3] - span[2]) / 2, 1e-6) * 1.1;
      const unit = this.isParallel ? 1 : distance * tangent;
      centre.addScaledVector(right, ((span[0] + span[1]) / 2) * unit);
      centre.addScaledVector(above, ((span[2] + span[3]) / 2) * unit);
      if (this.isParallel) {
        tall = Math.max(need, 0.5);
        distance = size + tall;
      } else {
        distance = Math.max(distance * need, 0.6 * size, 1);
      }
    }
    this.controls.target.copy(centre);
    this.camera.position.copy(centre).addScaledVector(direction, distance);
    if (this.isParallel) {
      this.orthographic.zoom = 1;
      this.orthographic.top = tall;
      this.orthographic.bottom = -tall;
      this.orthographic.left = -tall * aspect;
      this.orthographic.right = tall * aspect;
    }
    this.controls.update();
    this.onCamera();
    this.draw();
  }

  /// Where the viewer stands: degrees clockwise from true north, and above the horizon.
  bearing(): { azimuth: number; altitude: number } {
    const d = this.camera.position.clone().sub(this.controls.target).normalize();
    const azimuth = (Math.atan2(d.x, d.y) * 180) / Math.PI - this.north;
    return { azimuth: (azimuth + 720) % 360, altitude: (Math.asin(d.z) * 180) / Math.PI };
  }

  /// @param turn, tilt degrees
  orbit(turn: number, tilt: number): void {
    const { azimuth, altitude } = this.bearing();
    const high = Math.min(Math.max(altitude + tilt, -80), 89.9);
    const direction = new THREE.Vector3(
      ...directionOf({ azimuth: azimuth + turn, altitude: high }, this.north),
    );
    const distance = this.distance;
    this.camera.position.copy(this.controls.target).addScaledVector(direction, distance);
    this.controls.update();
    this.onCamera();
    this.draw();
  }

  /// @param right, above parts of the picture's height
  pan(right: number, above: number): void {
    const move = new THREE.Vector3()
      .setFromMatrixColumn(this.camera.matrix, 0)
      .multiplyScalar(right * this.height)
      .addScaledVector(new THREE.Vector3().setFromMatrixColumn(this.camera.matrix, 1), above * this.height);
    this.camera.position.add(move);
    this.controls.target.add(move);
    this.controls.update();
    this.onCamera();
    this.draw();
  }

  zoom(factor: number): void {
    if (this.isParallel) {
      this.orthographic.zoom /= factor;
      this.orthographic.updateProjectionMatrix();
    } else {
      this.camera.position
        .sub(this.controls.target)
        .multiplyScalar(factor)
        .add(this.controls.target);
    }
    this.controls.update();
    this.onCamera();
    this.draw();
  }

  // Drawing

  private aspect(): number {
    const { width, height } = this.size();
    return Math.max(width / this.shown.length, 1) / Math.max(height, 1);
  }

  private size(): { width: number; height: number } {
    return { width: this.canvas.clientWidth, height: this.canvas.clientHeight };
  }

  resize(): void {
    const { width, height } = this.size();
    if (width === 0 || height === 0) {
      return;
    }
    this.renderer.setSize(width, height, false);
    const aspect = this.aspect();
    this.perspective.aspect = aspect;
    const tall = (this.orthographic.top - this.orthographic.bottom) / 2;
    this.orthographic.left = -tall * aspect;
    this.orthographic.right = tall * aspect;
    this.onCamera();
    this.draw();
  }

  /// Soon, once for all that has changed.
  draw(): void {
    if (!this.pending) {
      this.pending = true;
      requestAnimationFrame(() => {
        if (this.pending) {
          this.drawNow();
        }
      });
    }
  }

  private setClip(): void {
    const sphere = this.whole.getBoundingSphere(new THREE.Sphere());
    let radius = sphere.radius * 1.01;
    if (this.shared.sunOn.value) {
      radius = Math.max(radius, 1.5 * this.box.getSize(new THREE.Vector3()).length());
    }
    const away = this.camera.position.distanceTo(sphere.center);
    const far = away + radius;
    this.camera.near = this.isParallel ? away - radius : Math.max(far / 5000, away - radius);
    this.camera.far = far;
    this.camera.updateProjectionMatrix();
    this.camera.updateMatrixWorld();
  }

  /// Draws and waits for the end of it.
  /// @return milliseconds
  drawNow(isFine = false): number {
    this.pending = false;
    const begin = performance.now();
    const ratio = window.devicePixelRatio || 1;
    // Without smoothing by the hardware, what rests is drawn at twice the detail.
    const detail = this.isSoftware ? (isFine ? 2 : 1) : Math.min(ratio, 2);
    if (this.renderer.getPixelRatio() !== detail) {
      this.renderer.setPixelRatio(detail);
      const { width, height } = this.size();
      this.renderer.setSize(width, height, false);
    }
    this.setClip();
    const { width, height } = this.size();
    this.renderer.setRenderTarget(null);
    this.renderer.setClearColor(this.background, 1);
    this.renderer.setScissorTest(false);
    this.renderer.setViewport(0, 0, width, height);
    this.renderer.clear();
    const wide = width / this.shown.length;
    this.renderer.setScissorTest(this.shown.length > 1);
    this.shown.forEach((number, i) => {
      const model = this.models[number];
      if (this.shared.sunOn.value) {
        this.renderer.setScissorTest(false);
        this.drawShadows(model);
        this.renderer.setScissorTest(this.shown.length > 1);
        this.renderer.setClearColor(this.background, 1);
      }
      this.renderer.setViewport(i * wide, 0, wide, height);
      this.renderer.setScissor(i * wide, 0, wide, height);
      this.renderer.render(model.scene, this.camera);
      if (this.shared.sunOn.value) {
        this.renderer.render(this.sunScene, this.camera);
      }
    });
    if (this.isSoftware) {
      // Hands the work over before the clock is read.
      const gl = this.renderer.getContext();
      gl.readPixels(0, 0, 1, 1, gl.RGBA, gl.UNSIGNED_BYTE, new Uint8Array(4));
    }
    this.frames += 1;
    const took = performance.now() - begin;
    if (!isFine) {
      this.lastFrame = took;
      window.clearTimeout(this.restTimer);
      if (this.isSoftware && this.lastFrame < 300) {
        this.restTimer = window.setTimeout(() => {
          this.drawNow(true);
        }, 220);
      }
    }
    return took;
  }

  /// The picture as it is on the screen, drawn at the given detail.
  snapshot(): HTMLCanvasElement {
    this.drawNow(true);
    const copy = document.createElement("canvas");
    copy.width = this.canvas.width;
    copy.height = this.canvas.height;
    copy.getContext("2d")?.drawImage(this.canvas, 0, 0);
    return copy;
  }

  // From the screen and to it

  /// The cell at a place of the picture [CSS pixels].
  pick(x: number, y: number): Hit | null {
    const { width, height } = this.size();
    const wide = width / this.shown.length;
    const number = Math.min(Math.max(Math.floor(x / wide), 0), this.shown.length - 1);
    const model = this.models[this.shown[number]];
    this.setClip();
    this.camera.setViewOffset(wide, height, x - number * wide, y, 1, 1);
    this.renderer.setRenderTarget(this.pickTarget);
    this.renderer.setScissorTest(false);
    this.renderer.setClearColor(0x000000, 0);
    this.renderer.clear();
    this.renderer.render(model.picking, this.camera);
    const pixel = new Uint8Array(4);
    this.renderer.readRenderTargetPixels(this.pickTarget, 0, 0, 1, 1, pixel);
    this.renderer.setRenderTarget(null);
    this.camera.clearViewOffset();
    const texel = pixel[0] + 256 * pixel[1] + 65536 * pixel[2] + 16777216 * pixel[3] - 1;
    return texel < 0 ? null : { model, sensor: model.sensorAt(texel) };
  }

  /// CSS pixels, in the first of the models beside each other; null behind the viewer.
  toScreen(point: THREE.Vector3, beside = 0): { x: number; y: number } | null {
    this.camera.updateMatrixWorld();
    if (point.clone().applyMatrix4(this.camera.matrixWorldInverse).z >= 0) {
      return null;
    }
    const at = point.clone().project(this.camera);
    const { width, height } = this.size();
    const wide = width / this.shown.length;
    return { x: beside * wide + (0.5 + 0.5 * at.x) * wide, y: (0.5 - 0.5 * at.y) * height };
  }

  /// The middle of a cell on the screen, whatever stands before it.
  cellOnScreen(model: ModelView, sensor: number): { x: number; y: number } | null {
    const corners = model.corners(sensor);
    const middle = corners
      .reduce((sum, corner) => sum.add(corner), new THREE.Vector3())
      .multiplyScalar(1 / corners.length);
    const beside = Math.max(this.shown.indexOf(this.models.indexOf(model)), 0);
    return this.toScreen(middle, beside);
  }

  /// Whether the sun reaches the middle of a cell, as the picture shows it.
  isLit(model: ModelView, sensor: number): boolean {
    const corners = cornersOf(model.result.cells, sensor);
    const { centre } = model.result;
    const middle = [0, 1, 2].map(
      (k) => corners.reduce((sum, corner) => sum + corner[k], 0) / corners.length + centre[k],
    );
    // What is no surface is lit where the sun's ray reaches it.
    const normal =
      model.result.cells.side[sensor] === noSide ? this.shared.sunDirection.value.toArray() : normalOf(corners);
    return this.litAt(middle, normal, this.models.indexOf(model))[0] >= 0.5;
  }
}

const tables = new Map<string, THREE.DataTexture>();
export function colorTexture(scheme: "sequential" | "diverging"): THREE.DataTexture {
  let texture = tables.get(scheme);
  if (!texture) {
    texture = new THREE.DataTexture(colorTable(scheme), 256, 1);
    texture.needsUpdate = true;
    tables.set(scheme, texture);
  }
  return texture;
}
