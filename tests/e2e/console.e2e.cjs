// Starts the demo, opens its agent console in headless Chromium, waits for the live screen, taps
// the demo's sign-in button on the screen image and waits for the console to report the page
// change that the tap causes. Saves a screenshot of the console.
'use strict';

const { chromium } = require('playwright-core');
const { spawn } = require('node:child_process');
const readline = require('node:readline');

// The sign-in button's fill: the one place of the sign-in page in this colour.
const SIGN_IN_COLOUR = { r: 0x1f, g: 0x6f, b: 0xeb };
const PAGE_AFTER_SIGN_IN = 'ListPage';

function option(name) {
  const at = process.argv.indexOf(`--${name}`);
  if (at < 0 || at + 1 >= process.argv.length) throw new Error(`missing --${name}`);
  return process.argv[at + 1];
}

// The demo's last lines of output, shown when the test fails.
const demoLog = [];

function startDemo(path) {
  const demo = spawn(path, [], { env: { ...process.env, QT_QPA_PLATFORM: 'offscreen' } });
  demo.stderr.on('data', () => {}); // the kit logs to stdout; keep stderr drained
  const consoleUrl = new Promise((resolve, reject) => {
    const lines = readline.createInterface({ input: demo.stdout });
    lines.on('line', (line) => {
      if (!/Execute polling|HttpUtil: POST|ping interval/.test(line)) demoLog.push(line);
      if (demoLog.length > 100) demoLog.shift();
      const found = /Agent console: (https?:\/\/\S+)/.exec(line);
      if (found) resolve(found[1]);
    });
    demo.on('exit', (code) => reject(new Error(`the demo exited (${code}) before printing the console URL`)));
    // unref: a pending timer must not keep the test alive once it is over.
    setTimeout(() => reject(new Error('the demo printed no console URL within 30 s')), 30000).unref();
  });
  return { demo, consoleUrl };
}

// Finds the centre of the sign-in button in the streamed JPEG, in page coordinates.
async function findSignIn(page, colour) {
  return page.evaluate((c) => {
    const img = document.querySelector('[data-testid=screen-image]');
    const canvas = document.createElement('canvas');
    canvas.width = img.naturalWidth;
    canvas.height = img.naturalHeight;
    const context = canvas.getContext('2d');
    context.drawImage(img, 0, 0);
    const data = context.getImageData(0, 0, canvas.width, canvas.height).data;
    let sumX = 0, sumY = 0, count = 0;
    for (let y = 0; y < canvas.height; ++y) {
      for (let x = 0; x < canvas.width; ++x) {
        const i = (y * canvas.width + x) * 4;
        // JPEG at quality 40 shifts colours a little.
        if (Math.abs(data[i] - c.r) < 40 && Math.abs(data[i + 1] - c.g) < 40 && Math.abs(data[i + 2] - c.b) < 40) {
          sumX += x; sumY += y; ++count;
        }
      }
    }
    if (count < 30) return null;
    const box = img.getBoundingClientRect();
    return {
      x: box.left + ((sumX / count + 0.5) * box.width) / img.naturalWidth,
      y: box.top + ((sumY / count + 0.5) * box.height) / img.naturalHeight,
      pixels: count,
    };
  }, colour);
}

async function main() {
  const { demo, consoleUrl } = startDemo(option('demo'));
  let browser;
  try {
    const url = await consoleUrl;
    console.log(`console at ${url}`);
    browser = await chromium.launch({
      executablePath: option('chromium'),
      args: ['--no-sandbox', '--disable-gpu', '--disable-background-networking',
             '--disable-component-update', '--no-first-run'],
    });
    const page = await browser.newPage({ viewport: { width: 1280, height: 800 } });
    page.on('pageerror', (error) => console.log(`page error: ${error.message}`));
    await page.goto(url);

    // The live screen: the only visit is selected by itself and its screenshots show.
    await page.waitForFunction(() => {
      const img = document.querySelector('[data-testid=screen-image]');
      return img && img.complete && img.naturalWidth > 0 && img.getBoundingClientRect().width > 0;
    }, null, { timeout: 30000 });

    // The demo's screen-name check takes its reference one second after streaming starts: a tap
    // before that would make ListPage the reference instead of a change. Give it time to pass.
    await page.waitForTimeout(2500);

    let target = null;
    for (let attempt = 0; attempt < 20 && !target; ++attempt) {
      target = await findSignIn(page, SIGN_IN_COLOUR);
      if (!target) await page.waitForTimeout(250);
    }
    if (!target) throw new Error('no sign-in button in the streamed screen');
    console.log(`sign-in button at (${target.x.toFixed(1)}, ${target.y.toFixed(1)}), ${target.pixels} pixels`);
    await page.mouse.click(target.x, target.y);

    // The first screen is not reported as a change: any page entry comes from the tap.
    await page.waitForFunction((name) => {
      const entries = document.querySelectorAll('[data-testid=timeline-entry][data-kind=page]');
      return Array.from(entries).some((entry) => entry.textContent.includes(name));
    }, PAGE_AFTER_SIGN_IN, { timeout: 20000 });
    console.log(`the console reports the page change to ${PAGE_AFTER_SIGN_IN}`);

    const screenshot = option('screenshot');
    await page.screenshot({ path: screenshot });
    console.log(`screenshot saved to ${screenshot}`);
  } finally {
    if (browser) await browser.close();
    demo.kill('SIGTERM');
  }
}

// exitCode rather than exit(): piped output is flushed first.
main().then(() => { process.exitCode = 0; }, (error) => {
  console.error(error.stack || String(error));
  console.error(`the demo's last lines:\n${demoLog.join('\n')}`);
  process.exitCode = 1;
});
