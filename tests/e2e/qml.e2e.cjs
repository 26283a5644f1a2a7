// The QML demo (a QGuiApplication with no widget) in the agent console: its screen streams with
// the password and card-number fields black, its page is named after its QML file, the agent's
// tap on the image presses its QML sign-in button, and co-browsing lays the kit's QML panel over
// it. Saves a screenshot of each state beside --screenshots.
'use strict';

const fs = require('node:fs');
const path = require('node:path');
const { chromium } = require('playwright-core');
const { option, start, screenPixels, findColour, chromiumArgs } = require('./support.cjs');

const SIGN_IN_COLOUR = { r: 0x1f, g: 0x6f, b: 0xeb };

// Rows of the streamed image holding a run of at least `length` near-black pixels: a masked
// field is a solid block, text never makes such a run.
async function blackRows(page, length) {
  const { width, height, data } = await screenPixels(page);
  let rows = 0;
  for (let y = 0; y < height; ++y) {
    let run = 0, best = 0;
    for (let x = 0; x < width; ++x) {
      const i = (y * width + x) * 4;
      run = Math.max(data[i], data[i + 1], data[i + 2]) < 30 ? run + 1 : 0;
      best = Math.max(best, run);
    }
    if (best >= length) ++rows;
  }
  return rows;
}

// Pixels of the co-browse panel's dark grey, rgb(38, 38, 38), told apart from black.
async function panelPixels(page) {
  const { data } = await screenPixels(page);
  let count = 0;
  for (let i = 0; i < data.length; i += 4) {
    if ([0, 1, 2].every((c) => data[i + c] >= 26 && data[i + c] <= 50)) ++count;
  }
  return count;
}

async function main() {
  const shots = option('screenshots');
  fs.mkdirSync(shots, { recursive: true });
  const { child: demo, url: consoleUrl, log: demoLog } = start(option('demo'));
  let browser;
  const errors = [];
  try {
    const url = await consoleUrl;
    browser = await chromium.launch({ executablePath: option('chromium'), args: chromiumArgs });
    const page = await browser.newPage({ viewport: { width: 1280, height: 800 } });
    page.on('pageerror', (error) => errors.push(error.message));
    await page.goto(url);
    await page.waitForFunction(() => {
      const img = document.querySelector('[data-testid=screen-image]');
      return img && img.complete && img.naturalWidth > 0 &&
        document.querySelector('[data-testid=selected-visit]').textContent.includes('SignInPage');
    }, null, { timeout: 30000 });
    console.log('the console shows the QML demo on SignInPage');

    // Two masked fields, each several rows of a third of its width at least.
    const rows = await blackRows(page, 30);
    console.log(`${rows} rows of the screen hold a masked block`);
    if (rows < 16) throw new Error(`the private fields are not black: ${rows} rows`);
    await page.screenshot({ path: path.join(shots, 'qml-1-signin.png') });

    // The name check takes its reference a second after streaming starts.
    await page.waitForTimeout(2500);
    const signIn = await findColour(page, SIGN_IN_COLOUR);
    if (!signIn) throw new Error('no sign-in button in the streamed screen');
    await page.mouse.click(signIn.x, signIn.y);
    await page.waitForFunction(() =>
      document.querySelector('[data-testid=selected-visit]').textContent.includes('ListPage'),
    null, { timeout: 20000 });
    console.log('the agent\'s tap pressed the QML sign-in button: the console shows ListPage');

    const before = await panelPixels(page);
    await page.click('[data-testid=action-cobrowse]');
    let after = before;
    for (const deadline = Date.now() + 30000; after < before + 300; await page.waitForTimeout(250)) {
      if (Date.now() > deadline) throw new Error(`no co-browse panel: ${before} → ${after} grey pixels`);
      after = await panelPixels(page);
    }
    console.log(`the co-browse panel shows on the QML window (${before} → ${after} grey pixels)`);
    await page.screenshot({ path: path.join(shots, 'qml-2-cobrowse.png') });
    if (errors.length) throw new Error(`page errors: ${errors.join('; ')}`);
  } catch (error) {
    console.log(demoLog.join('\n'));
    throw error;
  } finally {
    if (browser) await browser.close();
    demo.kill('SIGTERM');
  }
}

main().then(() => process.exit(0), (error) => {
  console.error(error);
  process.exit(1);
});
