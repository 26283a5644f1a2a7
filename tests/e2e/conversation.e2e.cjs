// The console follows the person: the demo streams to the standalone vistrel-service, and the
// console must keep one conversation through a restart and a co-browsing start, show a command
// going queued → delivered → done, show a device that went silent as ended, and lay the screen
// out with its markers on the image at 1920 and 1024 px wide, without an error on the page.
// Then the demo must end its visit on exit, recording or not (the service's config file tells it
// not to record). Saves a screenshot of each state beside --screenshots.
'use strict';

const fs = require('node:fs');
const path = require('node:path');
const { chromium } = require('playwright-core');
const { option, start, chromiumArgs } = require('./support.cjs');

const shots = option('screenshots');
const saved = [];

async function save(page, name) {
  const file = path.join(shots, `conversation-${name}.png`);
  await page.screenshot({ path: file });
  saved.push(path.basename(file));
}

async function api(base, route, method = 'GET') {
  const response = await fetch(new URL('console/api/' + route, base), { method });
  return response.json();
}

// The service on a free port with the given config; resolves to its console URL.
async function startService(config) {
  fs.mkdirSync(shots, { recursive: true });
  const file = path.join(shots, `service-${Object.keys(config.tenants || {}).length}.json`);
  fs.writeFileSync(file, JSON.stringify(config));
  const service = start(option('service'), ['--config', file]);
  return { service, base: await service.url };
}

async function waitFor(what, condition, timeoutMs = 20000) {
  const deadline = Date.now() + timeoutMs;
  for (;;) {
    const value = await condition();
    if (value) return value;
    if (Date.now() > deadline) throw new Error(`timed out waiting for ${what}`);
    await new Promise((resolve) => setTimeout(resolve, 100));
  }
}

// The command entry of the time line whose text starts with label, once in state `wanted`.
async function commandReaches(page, label, wanted) {
  await page.waitForFunction(([text, state]) => Array.from(
    document.querySelectorAll('[data-testid=timeline-entry][data-kind=command]'))
    .some((item) => item.querySelector('.text').textContent.startsWith(text) &&
                    item.dataset.state === state), [label, wanted], { timeout: 30000 });
  console.log(`"${label}" is ${wanted}`);
}

function selected(page) {
  return page.evaluate(() => {
    const row = document.querySelector('[data-testid=conversation-row][aria-selected=true]');
    return row && { conversation: row.dataset.conversationId, visit: row.dataset.visitId,
                    rows: document.querySelectorAll('[data-testid=conversation-row]').length };
  });
}

// The stage is exactly the image, at the screenshot's aspect ratio and at least its size, and
// inside the window; an agent tap puts its marker where the pointer was, and goes to the device
// pixel under the pointer.
async function checkLayout(page, width, height) {
  await page.setViewportSize({ width, height });
  await page.waitForTimeout(300);
  const box = await page.evaluate(() => {
    const img = document.querySelector('[data-testid=screen-image]');
    const stage = document.querySelector('[data-testid=stage]').getBoundingClientRect();
    const shown = img.getBoundingClientRect();
    const rows = new Set(Array.from(document.querySelectorAll('.actions button'), (b) => b.offsetTop));
    return { stage: stage.toJSON(), img: shown.toJSON(), natural: [img.naturalWidth, img.naturalHeight],
             buttonRows: rows.size, page: [document.documentElement.scrollWidth, innerWidth] };
  });
  const { stage, img, natural } = box;
  const aspect = Math.abs(img.width / img.height - natural[0] / natural[1]);
  if (Math.abs(stage.width - img.width) > 1 || Math.abs(stage.height - img.height) > 1 ||
      aspect > 0.02 || img.width < natural[0] || img.right > width || box.page[0] > box.page[1] ||
      box.buttonRows > 3) {
    throw new Error(`layout at ${width} px: ${JSON.stringify(box)}`);
  }
  // Empty space of the sign-in page, left of the fields' labels' end, where a tap does nothing.
  const at = { x: img.left + img.width * 0.5, y: img.top + img.height * 0.45 };
  await page.mouse.click(at.x, at.y);
  const perPixel = img.width / natural[0];
  const agentMark = await waitFor('the agent marker', () => page.evaluate(() => {
    const found = Array.from(document.querySelectorAll('[data-testid=tap-marker].agent')).pop();
    if (!found) return null;
    const r = found.getBoundingClientRect();
    return { x: r.left + r.width / 2, y: r.top + r.height / 2 };
  }), 2000);
  // The device pixel the tap went to, as the time line names it, back on the page.
  const sent = await waitFor('the tap command', () => page.evaluate(() => {
    const found = Array.from(document.querySelectorAll('[data-testid=timeline-entry][data-kind=command]'))
      .map((item) => /^Tap at \((\d+), (\d+)\)/.exec(item.querySelector('.text').textContent))
      .find(Boolean);
    return found && { x: Number(found[1]), y: Number(found[2]) };
  }), 5000);
  const device = { x: img.left + (sent.x / 3) * perPixel, y: img.top + (sent.y / 3) * perPixel };
  for (const [name, mark, slack] of [['agent marker', agentMark, 1.5], ['device pixel', device, perPixel / 3 + 1]]) {
    const off = Math.hypot(mark.x - at.x, mark.y - at.y);
    console.log(`${width} px: ${name} ${off.toFixed(1)} px from the pointer (image ` +
                `${img.width.toFixed(0)}×${img.height.toFixed(0)}, ${perPixel.toFixed(2)} px per screenshot pixel)`);
    if (off > slack) throw new Error(`${name} ${off} px off at ${width} px wide`);
  }
}

async function main() {
  const errors = [];
  let browser;
  let demo;
  let service;
  try {
    ({ service } = await startService({ port: 0 }));
    const base = await service.url;
    demo = start(option('demo'), ['--server', new URL(base).host]);
    browser = await chromium.launch({ executablePath: option('chromium'), args: chromiumArgs });
    const page = await browser.newPage({ viewport: { width: 1920, height: 1080 } });
    page.on('pageerror', (error) => errors.push(`page error: ${error.message}`));
    page.on('console', (message) => {
      if (message.type() === 'error') errors.push(`console error: ${message.text()}`);
    });
    // How long each new screenshot of the visit on display took from the service to the screen
    // (not the ones shown on selecting a visit: they arrived before).
    await page.addInitScript(() => {
      window.__latencies = [];
      let previous = null;
      new MutationObserver(() => {
        const img = document.querySelector('[data-testid=screen-image]');
        const now = { visit: img.dataset.visitId, at: img.dataset.shownAt };
        if (previous && previous.visit === now.visit && previous.at !== now.at) {
          window.__latencies.push(Number(img.dataset.shownAt) - Number(img.dataset.arrivedAt));
        }
        previous = now;
      }).observe(document, { subtree: true, attributes: true, attributeFilter: ['data-shown-at'] });
    });
    await page.goto(base);

    await page.waitForSelector('[data-testid=connection-status][data-state=online]');
    await page.waitForFunction(() => {
      const img = document.querySelector('[data-testid=screen-image]');
      return img.complete && img.naturalWidth > 0 && img.getBoundingClientRect().width > 0;
    }, null, { timeout: 30000 });
    // The demo takes its screen-name reference a second after streaming starts.
    await page.waitForTimeout(2000);
    const first = await selected(page);
    await save(page, '1-live');

    await checkLayout(page, 1920, 1080);
    await save(page, '2-markers-1920');
    await checkLayout(page, 1024, 768);
    await save(page, '3-markers-1024');
    await page.setViewportSize({ width: 1280, height: 800 });

    // Moving the focus between the sign-in page's user name and password fields repaints them:
    // new screenshots of the same visit, to time from the service to the screen.
    for (let i = 0; i < 6; ++i) {
      const img = await page.$eval('[data-testid=screen-image]', (e) => e.getBoundingClientRect().toJSON());
      await page.mouse.click(img.left + img.width * 0.6, img.top + img.height * (i % 2 ? 0.147 : 0.1));
      await page.waitForTimeout(800);
    }

    await page.click('[data-testid=action-faster]');
    await commandReaches(page, 'Faster polling', 'delivered');
    await save(page, '4-delivered');

    await page.click('[data-testid=action-start]');
    await commandReaches(page, 'Restart session', 'done');
    await page.waitForFunction((visit) =>
      document.querySelector('[data-testid=screen-image]').dataset.visitId !== visit, first.visit);
    const restarted = await selected(page);
    if (restarted.conversation !== first.conversation || restarted.rows !== 1) {
      throw new Error(`after the restart: ${JSON.stringify({ first, restarted })}`);
    }
    await save(page, '5-restart');

    await page.click('[data-testid=action-cobrowse]');
    await commandReaches(page, 'Start co-browsing', 'done');
    const coBrowsing = await selected(page);
    if (coBrowsing.conversation !== first.conversation || coBrowsing.rows !== 1 ||
        coBrowsing.visit === restarted.visit) {
      throw new Error(`after co-browsing: ${JSON.stringify({ first, coBrowsing })}`);
    }
    const visits = await page.$$eval('[data-testid=timeline-entry][data-kind=visit]', (l) => l.length);
    console.log(`one conversation, ${visits} visits on its time line`);
    await save(page, '6-cobrowse');

    // A device that opens a visit and goes quiet, as a killed app does.
    await fetch(new URL('api/ix/m?id=silent-visit&sId=silent&tId=demo-tenant&vId=silent&url=Gone', base));
    await page.waitForSelector('[data-testid=conversation-row][data-conversation-id=silent-visit][data-state=ended]',
                               { timeout: 15000 });
    const still = await selected(page);
    if (still.conversation !== first.conversation) throw new Error('the console left the live conversation');
    console.log('the silent visit is shown as ended; the console stayed on the live one');
    await save(page, '7-silent-ended');

    const latencies = await page.evaluate(() => window.__latencies);
    latencies.sort((a, b) => a - b);
    console.log(`screenshot from the service to the screen: ${latencies.length} shown, median ` +
                `${latencies[latencies.length >> 1]} ms, worst ${latencies[latencies.length - 1]} ms`);
    if (errors.length) throw new Error(errors.join('\n'));
    console.log('no error on the page');

    // The demo ends its visit when it quits.
    const { conversations } = await api(base, 'conversations');
    const last = conversations.find((c) => c.id === first.conversation).visit.id;
    demo.child.kill('SIGTERM');
    await waitFor('the demo\'s visit to end on exit', async () => {
      const visit = await api(base, `visits/${encodeURIComponent(last)}`);
      return visit.state === 'ended' && visit.endReason === 'deleted';
    }, 10000);
    console.log('recording: the demo deleted its visit on exit');
  } catch (error) {
    if (demo) console.error(`the demo's last lines:\n${demo.log.join('\n')}`);
    throw error;
  } finally {
    if (browser) await browser.close();
    if (demo) demo.child.kill('SIGTERM');
    if (service) service.child.kill('SIGTERM');
  }

  // Not recording: the service's config tells the demo's tenant not to start monitoring.
  ({ service } = await startService({ port: 0, tenants: { 'demo-tenant': { initReply: { shouldStartMonitoring: false } } } }));
  try {
    const base = await service.url;
    demo = start(option('demo'), ['--server', new URL(base).host]);
    const visit = await waitFor('the not-recording visit', async () => {
      const { visits } = await api(base, 'visits');
      return visits.find((v) => v.state === 'open');
    });
    if (visit.screenshot) throw new Error('the demo recorded although told not to');
    demo.child.kill('SIGTERM');
    await waitFor('the not-recording visit to end on exit', async () => {
      const now = await api(base, `visits/${encodeURIComponent(visit.id)}`);
      return now.state === 'ended' && now.endReason === 'deleted';
    }, 10000);
    console.log('not recording: the demo deleted its visit on exit');
  } finally {
    demo.child.kill('SIGTERM');
    service.child.kill('SIGTERM');
  }
  console.log(`screenshots: ${saved.join(', ')}`);
}

// exitCode rather than exit(): piped output is flushed first.
main().then(() => { process.exitCode = 0; }, (error) => {
  console.error(error.stack || String(error));
  process.exitCode = 1;
});
