// What the browser tests share: their options, starting a product that prints the console's
// URL, and finding a block of colour on the console's screen image.
'use strict';

const { spawn } = require('node:child_process');
const readline = require('node:readline');

function option(name) {
  const at = process.argv.indexOf(`--${name}`);
  if (at < 0 || at + 1 >= process.argv.length) throw new Error(`missing --${name}`);
  return process.argv[at + 1];
}

// Starts path with args on the offscreen platform; `url` resolves to the agent console's URL
// once the process prints it. `log` keeps its last lines, for a failure's report.
function start(path, args = []) {
  const child = spawn(path, args, { env: { ...process.env, QT_QPA_PLATFORM: 'offscreen' } });
  const log = [];
  child.stderr.on('data', () => {}); // the kit logs to stdout; keep stderr drained
  const url = new Promise((resolve, reject) => {
    const lines = readline.createInterface({ input: child.stdout });
    lines.on('line', (line) => {
      if (!/Execute polling|HttpUtil: POST|ping interval/.test(line)) log.push(line);
      if (log.length > 100) log.shift();
      const found = /Agent console: (https?:\/\/\S+)/.exec(line);
      if (found) resolve(found[1]);
    });
    child.on('exit', (code) => reject(new Error(`${path} exited (${code}) before printing the console URL`)));
    // unref: a pending timer must not keep the test alive once it is over.
    setTimeout(() => reject(new Error(`${path} printed no console URL within 30 s`)), 30000).unref();
  });
  url.catch(() => {}); // a caller that never waits for it must not see an unhandled rejection
  return { child, url, log };
}

// The streamed JPEG's pixels as the page decoded them (RGBA rows), and where it lies on the page.
function screenPixels(page) {
  return page.evaluate(() => {
    const img = document.querySelector('[data-testid=screen-image]');
    const canvas = document.createElement('canvas');
    canvas.width = img.naturalWidth;
    canvas.height = img.naturalHeight;
    const context = canvas.getContext('2d');
    context.drawImage(img, 0, 0);
    const box = img.getBoundingClientRect();
    return {
      width: canvas.width,
      height: canvas.height,
      data: Array.from(context.getImageData(0, 0, canvas.width, canvas.height).data),
      box: { left: box.left, top: box.top, width: box.width, height: box.height },
    };
  });
}

// The centre of the block of colour in the streamed JPEG, in page coordinates.
async function findColour(page, c) {
  const { width, height, data, box } = await screenPixels(page);
  let sumX = 0, sumY = 0, count = 0;
  for (let y = 0; y < height; ++y) {
    for (let x = 0; x < width; ++x) {
      const i = (y * width + x) * 4;
      // JPEG at quality 40 shifts colours a little.
      if (Math.abs(data[i] - c.r) < 40 && Math.abs(data[i + 1] - c.g) < 40 && Math.abs(data[i + 2] - c.b) < 40) {
        sumX += x; sumY += y; ++count;
      }
    }
  }
  if (count < 30) return null;
  return {
    x: box.left + ((sumX / count + 0.5) * box.width) / width,
    y: box.top + ((sumY / count + 0.5) * box.height) / height,
    pixels: count,
  };
}

const chromiumArgs = ['--no-sandbox', '--disable-gpu', '--disable-background-networking',
                      '--disable-component-update', '--no-first-run'];

module.exports = { option, start, screenPixels, findColour, chromiumArgs };
