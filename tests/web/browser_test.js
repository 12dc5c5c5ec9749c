// Fentra in a browser: Debian's Chromium, headless on its CPU renderer (SwiftShader), driven
// by playwright-core, with the web build served on 127.0.0.1.
//   node browser_test.js <web build dir> <desktop scenes dir> [<pictures dir>]
//     the GL layer's checks, the scenes on the canvas against the desktop's pictures, then the
//     program's start, keys, screenshot download and end, the page's link, ring files and CSV
//     download; failing pictures (and the browser's pictures of the keys) are kept in
//     <pictures dir> when given
//   node browser_test.js <web build dir> --bench
//     the median interval between frames for three configurations at 1920x1080
'use strict';
const { chromium } = require('playwright-core');
const fs = require('fs');
const http = require('http');
const path = require('path');
const zlib = require('zlib');

const [buildDir, second, keepDir] = process.argv.slice(2);
const W = 1920, H = 1080;
let failures = 0;
const fail = (what) => { failures++; console.log('FAIL: ' + what); };
const pass = (what) => console.log('ok: ' + what);
const sleep = (ms) => new Promise((r) => setTimeout(r, ms));

// ---- Serving the folder and starting the browser -------------------------------------------
function serve(dir) {
  const types = { '.html': 'text/html', '.js': 'text/javascript', '.wasm': 'application/wasm' };
  const server = http.createServer((req, res) => {
    const file = path.join(dir, path.normalize(decodeURIComponent(req.url.split('?')[0])).replace(/^\/+/, '') || 'index.html');
    fs.readFile(file, (err, data) => {
      if (err) { res.writeHead(404); res.end(); return; }
      res.writeHead(200, { 'Content-Type': types[path.extname(file)] || 'application/octet-stream' });
      res.end(data);
    });
  });
  return new Promise((resolve) => server.listen(0, '127.0.0.1', () => resolve(server)));
}

// WebGL and the page's compositing on SwiftShader; with `webglOnly`, WebGL on SwiftShader and
// the page composited in software, as Chromium does on a machine without a usable GPU.
const launch = (webglOnly) => chromium.launch({
  executablePath: process.env.FENTRA_CHROMIUM || '/usr/bin/chromium',
  args: ['--no-sandbox', webglOnly ? '--use-angle=swiftshader-webgl' : '--use-angle=swiftshader', '--enable-unsafe-swiftshader'],
});

// ---- Pictures: PNG and BMP into RGB rows from the top --------------------------------------
function decodePng(buf) {
  let pos = 8, w = 0, h = 0, channels = 0;
  const idat = [];
  while (pos < buf.length) {
    const len = buf.readUInt32BE(pos), type = buf.toString('ascii', pos + 4, pos + 8);
    const body = buf.subarray(pos + 8, pos + 8 + len);
    if (type === 'IHDR') { w = body.readUInt32BE(0); h = body.readUInt32BE(4); channels = body[9] === 6 ? 4 : 3; }
    if (type === 'IDAT') idat.push(body);
    pos += 12 + len;
  }
  const raw = zlib.inflateSync(Buffer.concat(idat)), stride = w * channels;
  const rows = Buffer.alloc(h * stride), rgb = Buffer.alloc(w * h * 3);
  for (let y = 0; y < h; y++) {
    const filter = raw[y * (stride + 1)], src = raw.subarray(y * (stride + 1) + 1, (y + 1) * (stride + 1));
    for (let x = 0; x < stride; x++) {
      const a = x >= channels ? rows[y * stride + x - channels] : 0, b = y ? rows[(y - 1) * stride + x] : 0;
      const c = x >= channels && y ? rows[(y - 1) * stride + x - channels] : 0;
      const p = a + b - c, pa = Math.abs(p - a), pb = Math.abs(p - b), pc = Math.abs(p - c);
      const predictor = [0, a, b, (a + b) >> 1, pa <= pb && pa <= pc ? a : pb <= pc ? b : c][filter];
      rows[y * stride + x] = (src[x] + predictor) & 255;
    }
    for (let x = 0; x < w; x++) rows.copy(rgb, (y * w + x) * 3, y * stride + x * channels, y * stride + x * channels + 3);
  }
  return { w, h, rgb };
}

function readBmp(buf) {
  const start = buf.readUInt32LE(10), w = buf.readInt32LE(18), h = buf.readInt32LE(22);
  const stride = (w * 3 + 3) & ~3, rgb = Buffer.alloc(w * h * 3);
  for (let y = 0; y < h; y++)
    for (let x = 0; x < w; x++) {
      const s = start + (h - 1 - y) * stride + x * 3, d = (y * w + x) * 3;
      rgb[d] = buf[s + 2]; rgb[d + 1] = buf[s + 1]; rgb[d + 2] = buf[s];
    }
  return { w, h, rgb };
}

// A PNG of RGB rows, for keeping pictures to look at.
function encodePng({ w, h, rgb }) {
  const raw = Buffer.alloc(h * (w * 3 + 1));
  for (let y = 0; y < h; y++) rgb.copy(raw, y * (w * 3 + 1) + 1, y * w * 3, (y + 1) * w * 3);
  const crcTable = Array.from({ length: 256 }, (_, n) => { for (let k = 0; k < 8; k++) n = n & 1 ? 0xedb88320 ^ (n >>> 1) : n >>> 1; return n >>> 0; });
  const crc = (b) => { let c = 0xffffffff; for (const v of b) c = crcTable[(c ^ v) & 255] ^ (c >>> 8); return (c ^ 0xffffffff) >>> 0; };
  const chunk = (type, body) => {
    const t = Buffer.concat([Buffer.from(type, 'ascii'), body]), out = Buffer.alloc(body.length + 12);
    out.writeUInt32BE(body.length, 0); t.copy(out, 4); out.writeUInt32BE(crc(t), body.length + 8);
    return out;
  };
  const ihdr = Buffer.alloc(13);
  ihdr.writeUInt32BE(w, 0); ihdr.writeUInt32BE(h, 4); ihdr[8] = 8; ihdr[9] = 2;
  return Buffer.concat([Buffer.from([137, 80, 78, 71, 13, 10, 26, 10]), chunk('IHDR', ihdr),
    chunk('IDAT', zlib.deflateSync(raw)), chunk('IEND', Buffer.alloc(0))]);
}

function keep(name, picture) {
  if (!keepDir) return;
  fs.mkdirSync(keepDir, { recursive: true });
  fs.writeFileSync(path.join(keepDir, name + '.png'), encodePng(picture));
}

// Pixels that differ by more than `tolerance` in some channel (`count`, the largest difference
// in `largest`), and among them those with no pixel within one pixel of the same place in the
// other picture that is within the tolerance either (`unmatched`): a primitive that one
// rasteriser puts a pixel further along than the other is an edge difference; text, colours
// or positions off by more than a pixel are not.
function difference(a, b, tolerance) {
  let count = 0, unmatched = 0, largest = 0;
  const marked = Buffer.alloc(a.rgb.length);
  const near = (p, i, q, j) => Math.abs(p.rgb[i] - q.rgb[j]) <= tolerance &&
    Math.abs(p.rgb[i + 1] - q.rgb[j + 1]) <= tolerance && Math.abs(p.rgb[i + 2] - q.rgb[j + 2]) <= tolerance;
  const matchedNearby = (p, q, x, y) => {
    for (let dy = -1; dy <= 1; dy++)
      for (let dx = -1; dx <= 1; dx++) {
        const u = x + dx, v = y + dy;
        if (u >= 0 && v >= 0 && u < p.w && v < p.h && near(p, (y * p.w + x) * 3, q, (v * q.w + u) * 3)) return true;
      }
    return false;
  };
  for (let y = 0; y < a.h; y++)
    for (let x = 0; x < a.w; x++) {
      const i = (y * a.w + x) * 3;
      const d = Math.max(Math.abs(a.rgb[i] - b.rgb[i]), Math.abs(a.rgb[i + 1] - b.rgb[i + 1]), Math.abs(a.rgb[i + 2] - b.rgb[i + 2]));
      largest = Math.max(largest, d);
      if (d <= tolerance) continue;
      count++;
      marked[i + 1] = 255;
      if (!matchedNearby(a, b, x, y) || !matchedNearby(b, a, x, y)) { unmatched++; marked[i] = 255; marked[i + 1] = 0; }
    }
  return { count, unmatched, largest, marked: { w: a.w, h: a.h, rgb: marked } };
}

// Pixels of the rectangle whose colour passes the test.
function count(p, x0, y0, w, h, test) {
  let n = 0;
  for (let y = Math.max(y0, 0); y < Math.min(y0 + h, p.h); y++)
    for (let x = Math.max(x0, 0); x < Math.min(x0 + w, p.w); x++) {
      const i = (y * p.w + x) * 3;
      if (test(p.rgb[i], p.rgb[i + 1], p.rgb[i + 2])) n++;
    }
  return n;
}

const canvasPicture = async (page, w, h) => decodePng(await page.screenshot({ clip: { x: 0, y: 0, width: w, height: h } }));


// ---- The scenes against the desktop's pictures ---------------------------------------------
// A pixel differs when some channel is off by more than 4: minified text is filtered with a
// rounding of its own on each renderer (off by up to 3). Measured between Mesa's llvmpipe and
// the layer's whole frames on the CPU (Chromium's SwiftShader being a software WebGL): the
// help page and the first frame 0 pixels; the KORA scene 7 pixels, 1 of them with nothing
// alike within a pixel (where Mesa ends a line a hair differently). The limits leave a few
// pixels of room.
const tolerance = 4;
const scenes = [
  { name: 'start', limit: 10, unmatched: 2 },
  { name: 'kora', limit: 20, unmatched: 4 },
  { name: 'help', limit: 0, unmatched: 0 },
];

async function compareScenes(browser, base, desktopDir) {
  const page = await browser.newPage({ viewport: { width: W, height: H } });
  await page.goto(base + 'scenes.html');
  for (const scene of scenes) {
    await page.waitForFunction((n) => window.Module && Module.scene_shown === n, scene.name, { timeout: 60000 });
    const web = await canvasPicture(page, 1024, 768);
    await page.evaluate(() => { Module.scene_taken = true; });
    const desktop = readBmp(fs.readFileSync(path.join(desktopDir, 'scene_' + scene.name + '.bmp')));
    const d = difference(web, desktop, tolerance);
    const what = `scene ${scene.name}: ${d.count} pixels differ by more than ${tolerance} (at most ${scene.limit}), ` +
      `${d.unmatched} with nothing alike within a pixel (at most ${scene.unmatched}); largest difference ${d.largest}`;
    if (d.count > scene.limit || d.unmatched > scene.unmatched) {
      fail(what);
      keep('scene_' + scene.name + '.web', web);
      keep('scene_' + scene.name + '.desktop', desktop);
      keep('scene_' + scene.name + '.diff', d.marked);
    } else pass(what);
  }
  await page.close();
}

// ---- The GL layer's own behaviours (gl1_check.cpp, which also runs on the desktop) ----------
// The GL layer's checks with whole frames on the CPU (the path a software WebGL takes), with
// only thin batches on the CPU, and with everything in WebGL (a GPU's path): GL's behaviour
// every way.
async function checkGlLayer(browser, base) {
  for (const path of ['frame', 'cpu', 'webgl']) {
    const page = await browser.newPage({ viewport: { width: 256, height: 256 } });
    const lines = [];
    page.on('console', (m) => lines.push(m.text()));
    const done = page.waitForEvent('console', { predicate: (m) => m.text().startsWith('gl1 check:'), timeout: 60000 });
    await page.goto(base + 'gl1_check.html?thin=' + path);
    await done.catch(() => {});
    const [chosen, byCpu] = await page.evaluate(() => [Module.thin_path, Module.frames_by_cpu || 0]);
    await page.close();
    (chosen === path ? pass : fail)(`GL layer: ?thin=${path} draws thin batches with ${chosen}`);
    // Each case starts a frame of its own; on the frame path most are drawn on the CPU.
    ((path === 'frame') === (byCpu >= 10) ? pass : fail)(`GL layer (${path}): ${byCpu} frames shown from the CPU`);
    const cases = lines.filter((l) => /^(ok|FAIL): /.test(l));
    if (cases.length === 0) fail('the GL layer check printed no case: ' + lines.join(' | '));
    for (const l of cases) (l.startsWith('ok') ? pass : fail)(`GL layer (${path}): ` + l.replace(/^(ok|FAIL): /, ''));
    const unhandled = lines.filter((l) => /not handled/.test(l));
    (unhandled.length === 1 && /glEnable\(0x0B50\)/.test(unhandled[0]) ? pass : fail)(
      `GL layer: lighting, asked for twice, is said to be not handled once (${unhandled.join(' | ') || 'nothing said'})`);
  }
  // Left to itself, the layer draws whole frames on the CPU on this machine's software WebGL.
  const page = await browser.newPage({ viewport: { width: 256, height: 256 } });
  await page.goto(base + 'gl1_check.html');
  await page.waitForFunction(() => window.Module && Module.thin_path, null, { timeout: 60000 });
  const [chosen, renderer] = await page.evaluate(() => [Module.thin_path, Module.webgl_renderer]);
  await page.close();
  (chosen === 'frame' && /swiftshader/i.test(renderer) ? pass : fail)(
    `GL layer: a software WebGL (${renderer}) draws whole frames on the CPU (${chosen})`);
}

// ---- The program: start, keys, screenshot download, end ------------------------------------
const white = (r, g, b) => r === 255 && g === 255 && b === 255;
const grey = (r, g, b) => r === 128 && g === 128 && b === 128;
const text = (r, g, b) => r > 0 && r === g && g === b;
const cyan = (r, g, b) => r === 0 && g > 128 && g === b;
const purple = (r, g, b) => r === 128 && g === 0 && b === 128;
const magenta = (r, g, b) => r === 255 && g === 0 && b === 255;
const scraperRed = (r, g, b) => r === 128 && g === 0 && b === 0;
const coloured = (r, g, b) => r !== g || g !== b;
const glow = (r, g, b) => r === g && g === b && r > 102 && r < 250 && r !== 128;   // not the pipe's wall
const row = 3 * H / 4;

// Each key is held for 0.15 s; then Ctrl+S saves the frame, whose download is checked:
// [what, x, y, width, height, colour test, at least this many pixels (or exactly 0 with none)].
// The highlight comes before the scraper and space charge, which may lose its particle.
const steps = [
  { key: null, expect: [['the title at the top left', 0, 0, 120, 20, text, 20],
    ['the beam near the centre', W / 2 - 60, H / 2 - 60, 120, 120, (r, g, b) => r + g + b > 0, 40],
    ['the pipe\'s wall', W / 2 - 540, H / 2 - 20, 40, 40, grey, 10]] },
  { key: 'p', expect: [['a beam of dots near the centre', W / 2 - 60, H / 2 - 60, 120, 120, white, 40]] },
  { key: 'k', expect: [['a beam of dots near the centre', W / 2 - 60, H / 2 - 60, 120, 120, white, 40]] },
  { key: 'i', expect: [['the ring map\'s orbit left of the pipe', 0, 0, W / 4, H, purple, 300],
    ['the KORA lines at (W/4, 20)', W / 4, 20, 200, 48, text, 50]] },
  { key: 'a', expect: [['the left graph\'s axis', 0, row - 1, W / 3, 2, grey, W / 6],
    ['the right graph\'s axis', 2 * W / 3, row - 1, W / 3, 2, grey, W / 6],
    ['dots in the x-x\' graph', W / 6 - 100, row - 100, 200, 200, white, 200]] },
  { key: 'l', expect: [['the soft grey edges of luminous particles', W / 2 - 300, 160, 600, 430, glow, 5000]] },
  { key: 'h', expect: [['the highlight ring', W / 4, 0, W / 2, 2 * H / 3, magenta, 10]] },
  { key: 'd', expect: [['momentum colours in the beam', W / 2 - 100, H / 3 - 100, 200, 200, coloured, 100]] },
  { key: 's', expect: [['the scraper line', W / 4, 0, W / 2, H / 2, scraperRed, 20]] },
  { key: 'c', expect: [['"Space-Charge" at (W/2, 0)', W / 2, 0, 120, 10, cyan, 10]] },
];

// Waits until the program has drawn n more frames: a key pressed again in the very next frame
// is not a new press (the snapshot showed it down in both), so keys are a few frames apart
// however slowly the renderer draws.
async function frames(page, n = 3) {
  const start = await page.evaluate(() => Module.frame_times.length);
  await page.waitForFunction((k) => Module.frame_times.length >= k, start + n, { timeout: 60000, polling: 50 });
}

// The frame Ctrl+S saves, from its download.
async function savedFrame(page) {
  await frames(page);
  const download = page.waitForEvent('download', { timeout: 30000 });
  await page.keyboard.down('Control');
  await page.keyboard.press('s', { delay: 150 });
  await page.keyboard.up('Control');
  const d = await download;
  const name = d.suggestedFilename();
  if (!/^Fentra_\d{5}\.png$/.test(name)) fail(`the screenshot's name ${name} is not Fentra_NNNNN.png`);
  return decodePng(fs.readFileSync(await d.path()));
}

function check(picture, label, expectations) {
  if (picture.w !== W || picture.h !== H) fail(`${label}: the picture is ${picture.w} x ${picture.h}`);
  keep('key_' + label, picture);
  for (const [what, x, y, w, h, test, least] of expectations) {
    const n = count(picture, Math.round(x), Math.round(y), Math.round(w), Math.round(h), test);
    const ok = least === 0 ? n === 0 : n >= least;
    (ok ? pass : fail)(`${label}: ${what} (${n} pixels, ${least === 0 ? 'none' : 'at least ' + least} expected)`);
  }
}

// The page hidden for a few seconds, as a browser hides a tab (its visibility as the page reads
// it; headless Chromium has no tabs to switch): no frames and no distance while hidden, then
// the simulation goes on from where it was with steps like the ones before. The page is held
// up for 2 s as it is hidden, as a browser holds up a hidden tab's timers, most likely while
// the program waits within its frame.
// Returns the frames drawn and the distance round the ring just before.
async function setHidden(page, hidden) {
  return page.evaluate((h) => {
    const seen = [Module.frame_times.length, Module._fentra_ring_position()];
    if (h) {
      Object.defineProperty(document, 'hidden', { value: true, configurable: true });
      Object.defineProperty(document, 'visibilityState', { value: 'hidden', configurable: true });
    } else {
      delete document.hidden;
      delete document.visibilityState;
    }
    document.dispatchEvent(new Event('visibilitychange'));
    for (const start = performance.now(); h && performance.now() - start < 2000;) {}
    return seen;
  }, hidden);
}

const framesAndPosition = (page) => page.evaluate(() => [Module.frame_times.length, Module._fentra_ring_position()]);

// A page hidden and shown again many times, at any moment of a frame (most often while the
// frame waits out its pacing), goes on drawing after each time. A page that no longer answers
// within 20 s fails here instead of holding up the rest.
async function hideOften(page) {
  const answer = (p) => Promise.race([p, sleep(20000).then(() => 'no answer')]);
  for (let i = 0; i < 16; i++) {
    await page.evaluate(() => {
      Object.defineProperty(document, 'hidden', { value: true, configurable: true });
      Object.defineProperty(document, 'visibilityState', { value: 'hidden', configurable: true });
      document.dispatchEvent(new Event('visibilitychange'));
    });
    await sleep(3 + 7 * i);
    const shown = await answer(page.evaluate(() => {
      delete document.hidden;
      delete document.visibilityState;
      document.dispatchEvent(new Event('visibilitychange'));
      return Module.frame_times.length;
    }));
    const later = await answer(page.waitForFunction((n) => Module.frame_times.length > n + 2, shown,
      { timeout: 20000, polling: 20 }).then(() => 'drawing', () => 'no frames'));
    if (shown === 'no answer' || later !== 'drawing') {
      fail(`a page hidden ${i + 1} times, ${3 + 7 * i} ms the last time, goes on drawing (${shown === 'no answer' ? shown : later})`);
      throw new Error('the page no longer answers');
    }
  }
  pass('a page hidden and shown 16 times, at any moment of a frame, goes on drawing after each');
}

async function hideForAWhile(page) {
  let ordinary = 0;
  for (let i = 0; i < 5; i++) {
    await frames(page, 1);
    ordinary = Math.max(ordinary, await page.evaluate(() => Module._fentra_step_length()));
  }
  const [framesBefore, before] = await setHidden(page, true);
  await sleep(500);   // the frame under way ends
  const [framesHidden, hidden] = await framesAndPosition(page);
  await sleep(3000);
  const [framesLater, later] = await framesAndPosition(page);
  (framesLater === framesHidden && later === hidden ? pass : fail)(
    `a hidden page pauses: ${framesLater - framesHidden} frames and ${(later - hidden).toFixed(3)} m in 3 s hidden`);
  await setHidden(page, false);
  await frames(page, 3);
  const [framesAfter, after] = await framesAndPosition(page);
  // each frame's step like one before the page was hidden (the 2 s held up would be tens of them)
  const steps = framesAfter - framesBefore + 1;
  (after > later && after - before <= 2 * steps * ordinary ? pass : fail)(
    `the beam goes on with ordinary steps: ${(after - before).toFixed(3)} m in ${steps} frames round the ` +
    `hidden time (a step was at most ${ordinary.toFixed(3)} m before)`);
}

// A mouse button let go outside the canvas, or held as the page loses focus, is let go; a key
// pressed with Meta (Command) stays the browser's: Meta+Q neither ends the program nor is kept
// from the browser.
async function buttonsAndMeta(page) {
  const left = async () => { await frames(page, 2); return (await page.evaluate(() => Module._fentra_mouse_buttons())) & 1; };
  await page.mouse.move(W / 2, H / 2);
  await page.mouse.down();
  const held = await left();
  await page.evaluate(() => window.dispatchEvent(new MouseEvent('mouseup', { button: 0, buttons: 0, clientX: 5, clientY: 5 })));
  const outside = await left();
  await page.mouse.up();
  await page.mouse.down();
  const heldAgain = await left();
  await page.evaluate(() => window.dispatchEvent(new FocusEvent('blur')));
  const blurred = await left();
  await page.mouse.up();
  (held && !outside ? pass : fail)(`the left button let go outside the canvas is let go (held ${held}, then ${outside})`);
  (heldAgain && !blurred ? pass : fail)(`the left button held as the page loses focus is let go (held ${heldAgain}, then ${blurred})`);

  // (the listener is in place before the key goes down: a busy page may run a script late)
  await page.evaluate(() => {
    Module.meta_q = null;
    window.addEventListener('keydown', (e) => { if (e.code === 'KeyQ') Module.meta_q = e.defaultPrevented; });
  });
  await page.keyboard.down('Meta');
  await page.keyboard.press('q', { delay: 150 });
  await page.keyboard.up('Meta');
  const framesThen = await page.evaluate(() => Module.frame_times.length);
  await sleep(500);
  const running = await page.evaluate((n) => Module.frame_times.length > n && !document.getElementById('restart'), framesThen);
  const kept = await page.waitForFunction(() => Module.meta_q !== null, null, { timeout: 10000 })
    .then(() => page.evaluate(() => Module.meta_q)).catch(() => 'never seen');
  (running && kept === false ? pass : fail)(`Meta+Q stays the browser's (the program ${running ? 'runs on' : 'ended'}, the key ${kept === 'never seen' ? 'never reached the page' : kept ? 'was kept from the browser' : 'was not kept from the browser'})`);
}

// The context lost and given back (WEBGL_lose_context): the picture comes back with its text
// (drawn from the fonts' textures), lines and beam, and the simulation goes on. Drawn with
// everything switched on, as the last key step left it.
async function loseContext(page, expect) {
  await page.evaluate(() => {
    Module.lose_context = Module.canvas.getContext('webgl2').getExtension('WEBGL_lose_context');
    Module.lose_context.loseContext();
  });
  await frames(page);
  const lost = await framesAndPosition(page);
  await page.evaluate(() => Module.lose_context.restoreContext());
  await frames(page);
  const restored = await framesAndPosition(page);
  (restored[1] > lost[1] ? pass : fail)(`the simulation goes on after the context came back (${lost[1].toFixed(3)} -> ${restored[1].toFixed(3)} m)`);
  check(await savedFrame(page), 'context restored', expect);
}

// On this machine's software WebGL the layer draws whole frames on the CPU: the default start
// and the KORA ring with its graphs, every frame of them.
async function drawnOnTheCpu(page, what) {
  const count = () => page.evaluate(() => [Module.frames_by_cpu || 0, Module.frames_by_webgl || 0]);
  await frames(page, 2);
  const before = await count();
  await frames(page, 5);
  const after = await count();
  const [cpu, webgl] = [after[0] - before[0], after[1] - before[1]];
  (cpu >= 3 && webgl === 0 ? pass : fail)(`${what} is drawn on the CPU (${cpu} frames, ${webgl} in WebGL)`);
}

async function playProgram(browser, base) {
  const page = await browser.newPage({ viewport: { width: W, height: H } });
  const errors = [];
  page.on('console', (m) => { if (m.type() === 'error') errors.push(m.text()); });
  page.on('pageerror', (e) => errors.push(e.message));
  await page.goto(base);
  await page.waitForFunction(() => window.Module && Module.calledRun, null, { timeout: 60000 });
  await page.evaluate(() => { Module.frame_times = []; });
  await frames(page);
  await hideOften(page);
  await hideForAWhile(page);   // outside KORA, where no element's end limits a step
  await buttonsAndMeta(page);
  for (const step of steps) {
    if (step.key) await page.keyboard.press(step.key, { delay: 150 });
    check(await savedFrame(page), step.key || 'start', step.expect);
    if (!step.key || step.key === 'a') await drawnOnTheCpu(page, step.key ? 'KORA with the graphs' : 'the default start');
  }
  // (the beam's own colours have changed since the luminous and graph steps: not those; nor the
  // highlight ring, which follows a particle that the scraper may since have taken, its place
  // going to another particle anywhere in the beam)
  const lasting = steps.slice(3).flatMap((step) => step.expect).filter(([what]) => !/luminous|dots in|highlight/.test(what));
  await loseContext(page, [steps[0].expect[0], ...lasting]);
  // F1 holds the program in the help page until F1 is let go and Space is pressed.
  // The help screen presents twice, then waits: the page is on the canvas after that.
  await page.keyboard.down('F1');
  await frames(page, 2);
  await sleep(1500);
  const help = await canvasPicture(page, W, H);
  await page.keyboard.up('F1');
  check(help, 'F1', [['"Key list:" in white at (100, 90)', 100, 90, 120, 12, text, 30],
    ['the key list in cyan from (100, 120)', 100, 120, 500, 200, cyan, 500],
    ['"Press space to continue..." in blue at (100, 500)', 100, 500, 300, 14, (r, g, b) => r === 0 && g === 0 && b > 0, 30]]);
  await page.keyboard.press('Space', { delay: 150 });
  check(await savedFrame(page), 'Space', [['no key list after Space', 100, 120, 500, 200, cyan, 0],
    ['the title after the help page', 0, 0, 120, 20, text, 20]]);
  // A full-screen canvas follows the browser window, and the view with it.
  await page.setViewportSize({ width: 1280, height: 720 });
  const small = await savedFrame(page);
  (small.w === 1280 && small.h === 720 && count(small, 0, 0, 120, 20, text) >= 20 ? pass : fail)(
    `the view follows the browser window to 1280 x 720 (a ${small.w} x ${small.h} frame)`);
  await frames(page);
  const before = await page.evaluate(() => Module.frame_times.length);
  await page.keyboard.press('q', { delay: 150 });
  await page.waitForSelector('#restart', { timeout: 30000 }).catch(() => {});
  const ended = await page.evaluate(() => document.body.innerText);
  const after = await page.evaluate(() => Module.frame_times.length);
  const link = await page.$('#restart');
  (/Fentra has ended/.test(ended) && link ? pass : fail)(`Q ends the program and the page says so with a link to start again ("${ended.trim()}", ${after - before} frames after Q)`);
  (errors.length === 0 ? pass : fail)(`no console errors (${errors.length}${errors.length ? ': ' + errors.join(' | ') : ''})`);
  await page.close();
}

// ---- The page's link, rings opened in the page and the bunch as a download -----------------
const ringFile = path.join(__dirname, '..', '..', 'data', 'examples', 'fodo_ring.madx');

async function startPage(context, address) {
  const page = await context.newPage();
  const said = [];
  page.on('console', (m) => said.push(m.text()));
  await page.goto(address);
  await page.waitForFunction(() => window.Module && Module.calledRun && Module.setup_text, null, { timeout: 60000 });
  await page.evaluate(() => { Module.frame_times = []; });
  await frames(page);
  return { page, said };
}

const note = (page) => page.evaluate(() => { const n = document.getElementById('note'); return n.style.display === 'none' ? '' : n.textContent; });
const ringName = (page) => page.evaluate(() => Module.ring_name());

async function linksAndRings(browser, base) {
  const context = await browser.newContext({ viewport: { width: W, height: H } });
  await context.grantPermissions(['clipboard-read', 'clipboard-write'], { origin: base });
  // A link with a setup starts in it: KORA's ring map and both graphs in the first frames (the
  // K beam is KORA's own matched beam, which the program's setup text leaves out).
  const { page } = await startPage(context, base + '#lattice=kora&beam=K&graphs=1');
  const setup = await page.evaluate(() => Module.setup_text());
  (setup === 'lattice=kora&graphs=1' ? pass : fail)(`a link's setup is the program's setup ("${setup}")`);
  const kora = await savedFrame(page);
  check(kora, 'link', [steps[3].expect[0], steps[4].expect[0], steps[4].expect[1]]);

  // Ctrl+E: the bunch as a CSV download, one row a particle under the comment lines and the header.
  const download = page.waitForEvent('download', { timeout: 30000 });
  await page.keyboard.down('Control');
  await page.keyboard.press('e', { delay: 150 });
  await page.keyboard.up('Control');
  const csv = await download;
  const lines = fs.readFileSync(await csv.path(), 'utf8').split('\n').filter((l) => l && !l.startsWith('#'));
  const rows = lines.slice(1).filter((l) => l.split(',').length === 7 && l.split(',').slice(0, 5).every((v) => isFinite(+v)));
  (/^Fentra_\d{5}\.csv$/.test(csv.suggestedFilename()) && lines[0] === 'x,xp,y,yp,delta,Qx,Qy' && rows.length === 10000 && lines.length === 10001 ? pass : fail)(
    `Ctrl+E downloads ${csv.suggestedFilename()}: header "${lines[0]}", ${rows.length} rows of seven numbers (10000 expected)`);

  // T shows the optics panel and hides it again: the setup the program reports says so.
  const toggled = [];
  for (let i = 0; i < 2; i++) {
    await page.keyboard.press('t', { delay: 150 });
    await frames(page);
    toggled.push(await page.evaluate(() => Module.setup_text()));
  }
  (/panel=1/.test(toggled[0]) && !/panel=1/.test(toggled[1]) ? pass : fail)(
    `T shows and hides the optics panel ("${toggled[0]}", then "${toggled[1]}")`);

  // "Copy link": the address with the setup, on the clipboard and on the page.
  await page.click('#copy_link');
  await frames(page, 1);
  const link = base + '#lattice=kora&graphs=1';
  const copied = await page.evaluate(() => navigator.clipboard.readText());
  (copied === link && (await note(page)) === 'Link: ' + link ? pass : fail)(`Copy link gives "${copied}" and shows "${await note(page)}"`);

  // A ring chosen with "Open ring...": it runs in KORA's place, named on the heads-up lines.
  await page.setInputFiles('#ring_file', ringFile);
  await page.waitForFunction(() => Module.ring_name() === 'Ring fodo_ring', null, { timeout: 30000 }).catch(() => {});
  await frames(page);
  const hud = await savedFrame(page);
  (await ringName(page) === 'Ring fodo_ring' && /lattice=ring/.test(await page.evaluate(() => Module.setup_text())) ? pass : fail)(
    `the chosen ring runs: "${await ringName(page)}", setup "${await page.evaluate(() => Module.setup_text())}"`);
  // the ring's name on the heads-up line at (W/4, 30), empty under KORA
  const band = ['the ring\'s name at (W/4, 30)', W / 4, 31, 200, 7, text];
  check(kora, 'link', [[...band, 0]]);
  check(hud, 'ring opened', [[...band, 40]]);

  // A broken ring dropped on the page: its error with file, line and column; the ring stays.
  await page.evaluate(() => {
    const files = new DataTransfer();
    // An undefined strength: the error comes from building the ring, after the reading.
    files.items.add(new File(['QF: QUADRUPOLE, L = 0.4, K1 = kq;\nring: LINE = (QF);\n'], 'broken.madx'));
    document.body.dispatchEvent(new DragEvent('drop', { dataTransfer: files, bubbles: true, cancelable: true }));
  });
  await page.waitForFunction(() => /broken/.test(document.getElementById('note').textContent), null, { timeout: 10000 }).catch(() => {});
  await frames(page);
  const error = await note(page);
  (/^broken\.madx:1:\d+: error: /.test(error) && await ringName(page) === 'Ring fodo_ring' ? pass : fail)(
    `a dropped broken ring shows "${error}" and the running ring stays ("${await ringName(page)}")`);
  await context.close();

  // A bad link: one line on the console and the page; the default start.
  const bad = await startPage(browser, base + '#lattice=kora&beam=Z');
  const shown = await note(bad.page), console_lines = bad.said.filter((l) => /link's setup/.test(l));
  const running = await bad.page.evaluate(() => [Module.setup_text(), Module.frame_times.length]);
  (/beam/.test(shown) && console_lines.length === 1 && console_lines[0] === shown && running[0] === '' && running[1] > 0 ? pass : fail)(
    `a bad link says "${shown}" (${console_lines.length} console line) and starts in the default setup ("${running[0]}", ${running[1]} frames)`);
  await bad.page.close();
}

// ---- The key bar: every key on the page, for a screen without a keyboard -------------------
// A button of the bar by the key it shows: its middle and whether it looks held.
const keyButton = (page, label) => page.evaluate((l) => {
  const b = [...document.querySelectorAll('#keybar button')].find((e) => e.firstChild.textContent === l);
  const r = b.getBoundingClientRect();
  return { x: r.x + r.width / 2, y: r.y + r.height / 2, held: b.classList.contains('held') };
}, label);
const magnet = (page, which) => page.evaluate((i) => Module._fentra_magnet(i), which);
const beamCentre = (page) => page.evaluate(() => [Module._fentra_beam_centre(0), Module._fentra_beam_centre(1)]);
// The bar and the canvas as the page lays them out, and the size the program draws at.
const layout = (page) => page.evaluate(() => {
  const box = (e) => { const r = e.getBoundingClientRect(); return { x: r.x, y: r.y, w: r.width, h: r.height }; };
  const bar = document.getElementById('keybar');
  return { shown: !bar.hidden && bar.offsetHeight > 0, bar: box(bar), canvas: box(Module.canvas),
    drawn: [Module.canvas.width, Module.canvas.height], window: [innerWidth, innerHeight] };
});
const overlap = (a, b) => Math.max(0, Math.min(a.x + a.w, b.x + b.w) - Math.max(a.x, b.x)) *
  Math.max(0, Math.min(a.y + a.h, b.y + b.h) - Math.max(a.y, b.y));

// The bar beside the canvas or under it, sharing the window with it, the program drawing on the
// whole canvas (the beam pipe, a circle as high as the canvas, whole in its width).
async function barBesideCanvas(page, label) {
  await page.waitForFunction(() => Module.canvas.width === parseFloat(Module.canvas.style.width), null, { timeout: 10000 }).catch(() => {});
  await frames(page);
  const l = await layout(page);
  const shared = Math.round(l.canvas.w * l.canvas.h + l.bar.w * l.bar.h) === l.window[0] * l.window[1];
  (l.shown && overlap(l.bar, l.canvas) === 0 && shared && l.drawn[0] === l.canvas.w && l.drawn[1] === l.canvas.h &&
    l.canvas.w >= l.canvas.h ? pass : fail)(
    `${label}: the key bar (${l.bar.w} x ${l.bar.h} at ${l.bar.x}, ${l.bar.y}) shares the window with the canvas ` +
    `(${l.canvas.w} x ${l.canvas.h}, drawn at ${l.drawn.join(' x ')}) without covering it`);
  return l;
}

// Fingers on the screen at the points (each point's place in the list is its finger), then
// the first few of them, then none: Chromium's touch input, so each button sees its own pointer.
// (A touch end names the fingers that lift, none for all.)
async function fingers(page) {
  const cdp = await page.context().newCDPSession(page);
  let down = [];
  return (points) => {
    const touchPoints = points.map((p, i) => ({ x: p.x, y: p.y, id: i }));
    const lifted = points.length ? down.slice(points.length) : [];
    const event = points.length > down.length ? { type: 'touchStart', touchPoints } : { type: 'touchEnd', touchPoints: lifted };
    down = touchPoints;
    return cdp.send('Input.dispatchTouchEvent', event);
  };
}

// A touch screen: the bar shows by itself beside or under the canvas; a magnet held by a finger
// is the key held (the beam steered as by the keyboard), two fingers hold two; a tap is a key
// pressed; the page losing focus lets the buttons go as it lets the keys go.
async function keyBarByTouch(browser, base) {
  const context = await browser.newContext({ viewport: { width: 1024, height: 768 }, hasTouch: true, isMobile: false });
  const { page } = await startPage(context, base);
  await barBesideCanvas(page, 'touch screen 1024 x 768');
  const touch = await fingers(page);

  // Steering held by a finger, then by the keyboard, each from a new default beam.
  const steer = async (down, up) => {
    await page.touchscreen.tap((await keyButton(page, 'Space')).x, (await keyButton(page, 'Space')).y);
    await frames(page);
    const before = await beamCentre(page);
    await down();
    await frames(page, 2);
    const held = [await magnet(page, 0), (await keyButton(page, '2')).held];
    await sleep(1000);
    const after = await beamCentre(page);
    await up();
    await frames(page, 2);
    return { held, moved: Math.hypot(after[0] - before[0], after[1] - before[1]), after: await magnet(page, 0) };
  };
  const two = await keyButton(page, '2');
  const byTouch = await steer(() => touch([two]), () => touch([]));
  const byKey = await steer(() => page.keyboard.down('2'), () => page.keyboard.up('2'));
  (byTouch.held[0] === byKey.held[0] && byKey.held[0] > 0 && byTouch.held[1] && byTouch.after === 0 ? pass : fail)(
    `a finger on 2 holds the steering dipoles as the key does (${byTouch.held[0]} by touch, ${byKey.held[0]} by the key, ` +
    `${byTouch.after} once the finger lifts)`);
  (byTouch.moved > 1e-3 && byKey.moved > 1e-3 && byTouch.moved < 3 * byKey.moved && byKey.moved < 3 * byTouch.moved ? pass : fail)(
    `the beam held 1 s under the steering dipoles moves ${(1000 * byTouch.moved).toFixed(2)} mm by touch, ` +
    `${(1000 * byKey.moved).toFixed(2)} mm by the key`);

  // Two fingers: quadrupoles and sextupoles at once; each lets go with its own finger.
  const four = await keyButton(page, '4'), six = await keyButton(page, '6');
  const held = async () => [await magnet(page, 1), await magnet(page, 2), (await keyButton(page, '4')).held, (await keyButton(page, '6')).held];
  await touch([four, six]);
  await frames(page, 2);
  const both = await held();
  await touch([four]);
  await frames(page, 2);
  const one = await held();
  await touch([]);
  await frames(page, 2);
  const none = await held();
  (both.join() === '2,30,true,true' && one.join() === '2,0,true,false' && none.join() === '0,0,false,false' ? pass : fail)(
    `two fingers on 4 and 6 hold the quadrupoles and sextupoles together (${both.join(', ')}), the finger on 6 ` +
    `lifted lets go of 6 alone (${one.join(', ')}), then the other of 4 (${none.join(', ')})`);

  // A tap is a press: T shows the optics panel, + doubles the speed, and again each undoes it.
  const tapped = [];
  for (const label of ['T', '+', 'T', '\u2212']) {
    const b = await keyButton(page, label);
    await page.touchscreen.tap(b.x, b.y);
    await frames(page);
    tapped.push(await page.evaluate(() => Module.setup_text()));
  }
  (/panel=1/.test(tapped[0]) && /panel=1&speed=2$/.test(tapped[1]) && tapped[2] === 'speed=2' && tapped[3] === '' ? pass : fail)(
    `taps on T, +, T, \u2212 toggle the panel and the speed ("${tapped.join('", "')}")`);

  // Shift held by a finger: slow motion, a fifth of a frame's step (the median of 7 frames).
  const step = async (hold) => {
    if (hold) await touch([await keyButton(page, 'Shift')]);
    await frames(page, 2);
    const steps = [];
    for (let i = 0; i < 7; i++) {
      await frames(page, 1);
      steps.push(await page.evaluate(() => Module._fentra_step_length()));
    }
    if (hold) await touch([]);
    return steps.sort((a, b) => a - b)[3];
  };
  const free = await step(false), slow = await step(true);
  (slow > 0 && slow < 0.5 * free ? pass : fail)(`Shift held by a finger slows the beam: a step of ${(1000 * free).toFixed(1)} mm, ${(1000 * slow).toFixed(1)} mm held`);

  // The page losing focus lets go of a button held, as the program lets go of its key.
  await touch([await keyButton(page, '5')]);
  await frames(page, 2);
  const held5 = [await magnet(page, 1), (await keyButton(page, '5')).held];
  await page.evaluate(() => window.dispatchEvent(new FocusEvent('blur')));
  await frames(page, 2);
  const blurred = [await magnet(page, 1), (await keyButton(page, '5')).held];
  await touch([]);
  (held5[0] === -2 && held5[1] && blurred[0] === 0 && !blurred[1] ? pass : fail)(
    `a button held as the page loses focus is let go with its key (${held5.join(', ')}, then ${blurred.join(', ')})`);

  // F1 holds the program in the help page until Space; the screenshot button downloads the frame.
  const help = await keyButton(page, 'F1');
  await page.touchscreen.tap(help.x, help.y);
  await sleep(1500);
  const inHelp = await page.evaluate(() => Module.frame_times.length);
  await sleep(500);
  const stillInHelp = await page.evaluate(() => Module.frame_times.length);
  const space = await keyButton(page, 'Space');
  await page.touchscreen.tap(space.x, space.y);
  await frames(page);
  (inHelp === stillInHelp ? pass : fail)(`F1 holds the program in the help page until Space (${stillInHelp - inHelp} frames in 0.5 s)`);
  const download = page.waitForEvent('download', { timeout: 30000 });
  const shot = await keyButton(page, 'Ctrl+S');
  await page.touchscreen.tap(shot.x, shot.y);
  const d = await download.catch(() => null);
  const picture = d && decodePng(fs.readFileSync(await d.path()));
  const l = await layout(page);
  await frames(page);
  const setup = await page.evaluate(() => Module.setup_text());
  (picture && /^Fentra_\d{5}\.png$/.test(d.suggestedFilename()) && picture.w === l.canvas.w && picture.h === l.canvas.h && !/scraper/.test(setup) ? pass : fail)(
    `the screenshot button downloads ${d && d.suggestedFilename()}, ${picture && picture.w + ' x ' + picture.h}, and leaves the scraper as it was ("${setup}")`);

  // A phone on its side: the bar beside the canvas.
  await page.setViewportSize({ width: 800, height: 400 });
  const side = await barBesideCanvas(page, 'touch screen 800 x 400');
  (side.bar.x >= side.canvas.w ? pass : fail)(`at 800 x 400 the bar is beside the canvas (at x ${side.bar.x})`);
  if (keepDir) await page.screenshot({ path: path.join(keepDir, 'keybar_800x400.png') });

  // Quit ends the program; the bar goes with it.
  const quit = await keyButton(page, 'Q');
  await page.touchscreen.tap(quit.x, quit.y);
  await page.waitForSelector('#restart', { timeout: 30000 }).catch(() => {});
  const ended = await page.evaluate(() => [!!document.getElementById('restart'), document.getElementById('keybar').hidden]);
  (ended[0] && ended[1] ? pass : fail)(`the quit button ends the program and the bar goes (${ended.join(', ')})`);
  await context.close();
}

// Without a touch screen the bar waits behind the "Keys" button; the canvas makes room for it
// and takes the window back when it goes; its buttons work with the mouse.
async function keyBarByMouse(browser, base) {
  const context = await browser.newContext({ viewport: { width: 1024, height: 768 } });
  const { page } = await startPage(context, base);
  const hidden = await layout(page);
  (!hidden.shown && hidden.drawn[0] === 1024 && hidden.drawn[1] === 768 ? pass : fail)(
    `without a touch screen the bar is hidden and the canvas fills the window (${hidden.drawn.join(' x ')})`);
  await page.click('#keys_button');
  await barBesideCanvas(page, 'after "Keys"');
  const five = await keyButton(page, '5');
  await page.mouse.move(five.x, five.y);
  await page.mouse.down();
  await frames(page, 2);
  const held = await magnet(page, 1);
  await page.mouse.up();
  await frames(page, 2);
  const after = [await magnet(page, 1), await page.evaluate(() => document.activeElement === Module.canvas)];
  (held === -2 && after[0] === 0 && after[1] ? pass : fail)(
    `the mouse holds 5 on the bar (${held}, then ${after[0]}), and the keyboard stays with the canvas (${after[1]})`);
  await page.click('#keys_button');
  await page.waitForFunction(() => Module.canvas.height === 768, null, { timeout: 10000 }).catch(() => {});
  const back = await layout(page);
  (!back.shown && back.drawn[1] === 768 ? pass : fail)(`"Keys" again hides the bar and the canvas takes the window back (${back.drawn.join(' x ')})`);
  await context.close();
}

// ---- A high-density screen --------------------------------------------------------------------
// At a device scale factor of 2 the page shows each of the canvas's pixels as 2 x 2 screen
// pixels of exactly its colour: round the heads-up text (the title, the key hint, the
// luminosity lines) no screen pixel has a colour blended from its neighbours.
async function highDensity(browser, base) {
  const context = await browser.newContext({ viewport: { width: 1280, height: 720 }, deviceScaleFactor: 2 });
  const page = await context.newPage();
  await page.goto(base);
  await page.waitForFunction(() => window.Module && Module.calledRun, null, { timeout: 60000 });
  await page.evaluate(() => { Module.frame_times = []; });
  const frame = await savedFrame(page);
  const screen = decodePng(await page.screenshot({ clip: { x: 0, y: 0, width: 1280, height: 720 } }));
  const boxes = [[0, 0, 260, 200], [0, 700, 200, 20], [860, 30, 420, 80]];   // x, y, w, h in CSS pixels
  let blended = 0, compared = 0;
  for (const [x0, y0, w, h] of boxes)
    for (let y = 2 * y0; y < 2 * (y0 + h); y++)
      for (let x = 2 * x0; x < 2 * (x0 + w); x++) {
        const i = (y * screen.w + x) * 3, j = ((y >> 1) * frame.w + (x >> 1)) * 3;
        compared++;
        if (screen.rgb[i] !== frame.rgb[j] || screen.rgb[i + 1] !== frame.rgb[j + 1] || screen.rgb[i + 2] !== frame.rgb[j + 2]) blended++;
      }
  (screen.w === 2560 && blended === 0 ? pass : fail)(
    `at device scale factor 2 the text keeps its pixels: ${blended} of ${compared} screen pixels (${screen.w} x ${screen.h}) differ from the canvas pixel they show`);
  await context.close();
}

// ---- Benchmark: frame intervals at 1920 x 1080 ---------------------------------------------
// The time between swaps over a few seconds of each configuration, from a fresh start of the
// page: the default beam, the KORA lattice with the graphs, and luminous particles; beside it
// how many of the frames the page put on the canvas (at most one a display frame).
const configurations = [
  { name: 'default beam', keys: [] },
  { name: 'KORA with graphs', keys: ['i', 'a'] },
  { name: 'luminous particles', keys: ['l'] },
];

// The median interval between frames (and the 90th percentile) over a few seconds of a page.
async function frameIntervals(browser, address, keys) {
  const seconds = +(process.env.FENTRA_BENCH_SECONDS || 5);
  const page = await browser.newPage({ viewport: { width: W, height: H } });
  await page.goto(address);
  await page.waitForFunction(() => window.Module && Module.calledRun, null, { timeout: 60000 });
  await sleep(1000);
  for (const key of keys) await page.keyboard.press(key, { delay: 150 });
  await sleep(1000);
  await page.evaluate(() => { Module.frame_times = []; Module.shown_times = []; });
  await sleep(seconds * 1000);
  const [frames, shown, path] = await page.evaluate(() => [Module.frame_times, Module.shown_times, Module.thin_path]);
  await page.close();
  const gaps = frames.slice(1).map((t, i) => t - frames[i]).sort((a, b) => a - b);
  const at = (q) => gaps[Math.min(gaps.length - 1, Math.floor(q * gaps.length))];
  return { median: at(0.5), p90: at(0.9), drawn: frames.length, shown: shown.length, path };
}

// Every configuration on each drawing path forced, side by side (whole frames on the CPU, thin
// batches on the CPU into WebGL's frame, everything in WebGL), then the empty frame's interval
// and the default beam's (on the path the layer chooses) over it.
async function bench(browser, base, mode) {
  console.log(mode);
  const cell = (r) => `${r.median.toFixed(1)} ms (p90 ${r.p90.toFixed(1)}, ${r.shown}/${r.drawn} shown)`.padEnd(34);
  console.log(`  ${''.padEnd(20)}${'whole frames on the CPU'.padEnd(34)}${'thin batches on the CPU'.padEnd(34)}everything in WebGL`);
  for (const c of configurations) {
    const row = [];
    for (const path of ['frame', 'cpu', 'webgl']) row.push(await frameIntervals(browser, base + '?thin=' + path, c.keys));
    console.log(`  ${c.name.padEnd(20)}${row.map(cell).join('')}`);
  }
  // The empty frame in WebGL: a clear and the swap, the least a page can show a frame with.
  const empty = await frameIntervals(browser, base + 'gl1_check.html?empty&thin=webgl', []);
  const chosen = await frameIntervals(browser, base, []);
  console.log(`  empty frame: ${cell(empty)}`);
  console.log(`  default beam on the chosen path (${chosen.path}): ${chosen.median.toFixed(1)} ms, ` +
    `${(chosen.median / empty.median).toFixed(2)} times the empty frame (target: at most 1.25)`);
}

(async () => {
  const server = await serve(buildDir);
  const base = `http://127.0.0.1:${server.address().port}/`;
  let browser = await launch(false);
  try {
    if (second === '--bench') {
      await bench(browser, base, 'WebGL and compositing on SwiftShader:');
      await browser.close();
      browser = await launch(true);
      await bench(browser, base, 'WebGL on SwiftShader, the page composited in software (no usable GPU):');
    } else {
      // FENTRA_WEB_ONLY, when set, names the parts to run (gl, scenes, program, density, page, keybar), for a quick
      // look at one of them
      const only = (part) => !process.env.FENTRA_WEB_ONLY || process.env.FENTRA_WEB_ONLY.split(',').includes(part);
      if (only('gl')) await checkGlLayer(browser, base);
      if (only('scenes')) await compareScenes(browser, base, second);
      if (only('program')) await playProgram(browser, base);
      if (only('density')) await highDensity(browser, base);
      if (only('page')) await linksAndRings(browser, base);
      if (only('keybar')) { await keyBarByTouch(browser, base); await keyBarByMouse(browser, base); }
    }
  } finally {
    await browser.close();
    server.close();
  }
  console.log(failures ? `${failures} failed` : 'PASS');
  process.exit(failures ? 1 : 0);
})();
