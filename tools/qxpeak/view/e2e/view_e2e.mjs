// Opens a signal in `qxpeak view`, lengthens a detection range so that the range rules ask
// whether to combine it with its neighbour, answers Yes in the page's dialog and checks that
// the peak table gains the peaks the neighbour's high threshold hid; then types a negative
// bound and checks that the library's message is shown and nothing changes.
//   node view_e2e.mjs QXPEAK_BINARY CHROMIUM_BINARY
import {spawn, execFileSync} from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import puppeteer from 'puppeteer-core';

const [qxpeak, browserPath] = process.argv.slice(2);
const dir = fs.mkdtempSync(path.join(os.tmpdir(), 'qxpeak-view-e2e-'));
let server = null;
let browser = null;

function fail(message) {
  throw new Error(message);
}

// Five Gaussian peaks on 0..100 with seeded noise; the last two under half the tallest.
function writeSignal(file) {
  let seed = 12345;
  const noise = () => ((seed = (seed * 1103515245 + 12345) % 2147483648) / 2147483648 - 0.5);
  const peaks = [[15, 1000], [35, 800], [55, 600], [75, 300], [90, 250]];
  const lines = [];
  for (let i = 0; i < 2000; ++i) {
    const x = i * 0.05;
    let y = 5 + noise();
    for (const [c, h] of peaks) y += h * Math.exp(-0.5 * ((x - c) / 0.4) ** 2);
    lines.push(`${x.toFixed(4)}\t${y.toFixed(4)}`);
  }
  fs.writeFileSync(file, lines.join('\n') + '\n');
}

// Three ranges with mass processing (so that peaks have centroids); the third range asks
// for 90 % of the tallest peak and so finds nothing.
function writeSettings(file) {
  const ini = execFileSync(qxpeak, ['settings', '--mass', '--segment', '0:30', '--segment',
                                    '30:60', '--segment', '60:100'], {encoding: 'utf8'});
  fs.writeFileSync(file, ini.replace(/^PeakThresholdPct-2=.*$/m, 'PeakThresholdPct-2=90'));
}

function startServer(signal, settings) {
  return new Promise((resolve, reject) => {
    server = spawn(qxpeak, ['view', signal, '--settings', settings, '--no-browser'],
                   {stdio: ['ignore', 'pipe', 'inherit']});
    let out = '';
    server.stdout.on('data', chunk => {
      out += chunk;
      const m = out.match(/http:\/\/127\.0\.0\.1:\d+\//);
      if (m) resolve(m[0]);
    });
    server.on('exit', code => reject(new Error('qxpeak view exited with ' + code)));
  });
}

const rowCount = page => page.$$eval('#peaks tbody tr', rows => rows.length);
const centroids = page => page.$$eval('#peaks tbody tr td:nth-child(4)', cells => cells.map(c => c.textContent));

async function typeInto(page, selector, text) {
  await page.click(selector, {clickCount: 3});
  await page.keyboard.press('Backspace');
  await page.type(selector, text);
  await page.keyboard.press('Tab');
}

async function main() {
  const signal = path.join(dir, 'signal.txt');
  const settings = path.join(dir, 'three.ini');
  writeSignal(signal);
  writeSettings(settings);
  const url = await startServer(signal, settings);

  browser = await puppeteer.launch({
    executablePath: browserPath,
    headless: true,
    userDataDir: path.join(dir, 'profile'),
    args: ['--headless', '--no-sandbox', '--disable-gpu', '--no-first-run',
           '--disable-background-networking', '--disable-component-update', '--disable-sync',
           '--window-size=1400,900'],
    defaultViewport: {width: 1400, height: 900},
  });
  const page = await browser.newPage();
  await page.goto(url);
  await page.waitForFunction(() => document.querySelectorAll('#peaks tbody tr').length > 0);

  // The table shows every centroid with at least four decimals at once.
  const before = await centroids(page);
  if (before.length !== 3) fail(`expected 3 peaks at first, saw ${before.length}`);
  for (const c of before) if (!/^\d+\.\d{4,}$/.test(c)) fail(`centroid "${c}" lacks four decimals`);

  // Range 2 to 100 covers range 3 entirely: the rules ask whether to combine them.
  await typeInto(page, 'input[data-range="x2"][data-index="1"]', '100');
  await page.waitForSelector('#ask[open]');
  const question = await page.$eval('#ask .text', e => e.textContent);
  if (!question.includes('combine Ranges 2 -> 3')) fail(`unexpected question: ${question}`);
  await page.click('#ask button[value="yes"]');
  await page.waitForFunction(() => document.querySelectorAll('#peaks tbody tr').length === 5);
  const ranges = await page.$$eval('#segments tbody tr', rows => rows.length);
  if (ranges !== 2) fail(`expected 2 ranges after combining, saw ${ranges}`);

  // A negative bound: the library's message, and nothing changes.
  await typeInto(page, 'input[data-range="x1"][data-index="0"]', '-1');
  await page.waitForSelector('#message[open]');
  const message = await page.$eval('#message .text', e => e.textContent);
  if (message !== 'Segment range values must be greater or equal to 0') fail(`unexpected message: ${message}`);
  await page.click('#message button[value="ok"]');
  await page.waitForFunction(() => document.querySelector('input[data-range="x1"][data-index="0"]').value === '0.00');
  if (await rowCount(page) !== 5) fail('the peak table changed after a refused bound');

  const shot = process.env.QXPEAK_VIEW_SCREENSHOT;
  if (shot) await page.screenshot({path: shot});
  console.log('qxpeak view in the browser: question answered, 3 -> 5 peaks, refused bound kept');
}

const timer = setTimeout(() => { console.error('timed out'); process.exit(1); }, 90000);
let status = 0;
try {
  await main();
} catch (e) {
  console.error('FAILED: ' + e.message);
  status = 1;
} finally {
  clearTimeout(timer);
  if (browser) await browser.close().catch(() => {});
  if (server) server.kill('SIGTERM');
  fs.rmSync(dir, {recursive: true, force: true});
}
process.exit(status);
