// Starts the demo, opens its agent console in headless Chromium, waits for the live screen, taps
// the demo's sign-in button on the screen image and waits for the console to show the page the
// tap leads to and the user the demo identifies on signing in, on the new visit that follows.
// Then taps the demo's Chat button, waits for the chat page to announce itself, and sends it a
// message and a PDF that its poll must fetch. Before the chat, taps Video call, starts the call
// from the console's queue (the stand-in meeting opens in the demo over HTTPS) and ends it. Saves
// screenshots of the console with the call and with the chat.
'use strict';

const { chromium } = require('playwright-core');
const { option, start, findColour, chromiumArgs } = require('./support.cjs');

// The sign-in button's fill: the one place of the sign-in page in this colour.
const SIGN_IN_COLOUR = { r: 0x1f, g: 0x6f, b: 0xeb };
const PAGE_AFTER_SIGN_IN = 'ListPage';
// The session panel's Chat button, likewise alone in its colour.
const CHAT_COLOUR = { r: 0xe8, g: 0x59, b: 0x0c };
// The session panel's Video call button.
const VIDEO_CALL_COLOUR = { r: 0x7b, g: 0x2c, b: 0xbf };

// Taps the block of colour on the screen image, waiting for it to appear.
async function tap(page, colour, what) {
  let target = null;
  for (let attempt = 0; attempt < 20 && !target; ++attempt) {
    target = await findColour(page, colour);
    if (!target) await page.waitForTimeout(250);
  }
  if (!target) throw new Error(`no ${what} in the streamed screen`);
  console.log(`${what} at (${target.x.toFixed(1)}, ${target.y.toFixed(1)}), ${target.pixels} pixels`);
  await page.mouse.click(target.x, target.y);
}

async function main() {
  const { child: demo, url: consoleUrl, log: demoLog } = start(option('demo'));
  let browser;
  try {
    const url = await consoleUrl;
    console.log(`console at ${url}`);
    browser = await chromium.launch({
      executablePath: option('chromium'),
      args: chromiumArgs,
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

    const firstVisit = await page.getAttribute('[data-testid=screen-image]', 'data-visit-id');
    await tap(page, SIGN_IN_COLOUR, 'sign-in button');

    // Signing in identifies the user, and the kit restarts the session as a new visit: the page
    // change may show on the first visit or as the new visit's opening screen. Either way the
    // selected visit names the page only after the tap.
    await page.waitForFunction((name) =>
      document.querySelector('[data-testid=selected-visit]').textContent.includes(name),
    PAGE_AFTER_SIGN_IN, { timeout: 20000 });
    console.log(`the console shows the page after sign-in, ${PAGE_AFTER_SIGN_IN}`);

    // The console follows the visitor to the new visit and shows who the user is.
    await page.waitForFunction((first) => {
      const user = document.querySelector('[data-testid=visit-user]');
      const visit = document.querySelector('[data-testid=screen-image]').dataset.visitId;
      return visit !== first && user.dataset.identified === 'true' &&
        document.querySelector('[data-testid=user-name]').textContent === 'Alex Morgan' &&
        document.querySelector('[data-testid=user-email]').textContent === 'alex.morgan@example.com' &&
        document.querySelector('[data-testid=user-tags]').textContent === 'premium';
    }, firstVisit, { timeout: 20000 });
    const source = await page.getAttribute('[data-testid=visit-user]', 'data-source');
    console.log(`the console shows Alex Morgan on the new visit (from its ${source})`);

    // The new visit's own screen, before looking for the Chat button on it.
    await page.waitForFunction(() => {
      const img = document.querySelector('[data-testid=screen-image]');
      return img.dataset.screenshotIndex !== undefined && img.complete && img.naturalWidth > 0;
    }, null, { timeout: 20000 });
    await tap(page, VIDEO_CALL_COLOUR, 'Video call button');
    await page.waitForSelector('[data-testid=call-row][data-position="1"]', { timeout: 30000 });
    console.log('the customer waits first in the queue');
    await page.click('[data-testid=call-row] [data-testid=call-start]');
    // The device hears position 0, asks for the call settings and opens the stand-in meeting.
    await page.waitForSelector('[data-testid=meeting-row][data-ended=false]', { timeout: 45000 });
    console.log('the call is open on the device');
    await page.waitForTimeout(2000); // for the streamed screen to show it
    await page.screenshot({ path: option('screenshot').replace(/\.png$/, '-call.png') });
    await page.click('[data-testid=meeting-row] [data-testid=meeting-end]');
    await page.waitForSelector('[data-testid=meeting-row][data-ended=true]', { timeout: 30000 });
    console.log('the call ended');
    // The streamed screen shows the app again, with the whole Chat button, once the call is gone.
    for (let attempt = 0; attempt < 40; ++attempt) {
      const chat = await findColour(page, CHAT_COLOUR);
      if (chat && chat.pixels > 500) break;
      await page.waitForTimeout(250);
    }

    await tap(page, CHAT_COLOUR, 'Chat button');

    // Qt WebEngine starts its browser process on the first chat: give it time.
    await page.waitForFunction(() => Array.from(
      document.querySelectorAll('[data-testid=chat-message][data-from=system]'))
      .some((item) => item.textContent.includes('opened the chat')), null, { timeout: 45000 });
    console.log('the chat page announced itself');

    // What the agent sends counts as seen once the page's poll fetched it.
    await page.fill('[data-testid=chat-input]', 'Hello Alex, how can I help?');
    await page.click('[data-testid=chat-send]');
    await page.click('[data-testid=chat-send-pdf]');
    await page.waitForFunction(() => {
      const agent = Array.from(document.querySelectorAll('[data-testid=chat-message][data-from=agent]'));
      return agent.length === 2 && agent.every((item) => item.dataset.delivered === 'true') &&
        agent[0].textContent.includes('Hello Alex') && agent[1].textContent.includes('statement.pdf');
    }, null, { timeout: 15000 });
    console.log('the chat page fetched the message and the PDF');

    const screenshot = option('screenshot');
    await page.screenshot({ path: screenshot });
    console.log(`screenshot saved to ${screenshot}`);

  } catch (error) {
    console.error(`the demo's last lines:\n${demoLog.join('\n')}`);
    throw error;
  } finally {
    if (browser) await browser.close();
    demo.kill('SIGTERM');
  }
}

// exitCode rather than exit(): piped output is flushed first.
main().then(() => { process.exitCode = 0; }, (error) => {
  console.error(error.stack || String(error));
  process.exitCode = 1;
});
