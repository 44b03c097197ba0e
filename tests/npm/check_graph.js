// Drives the page of `sulva graph` in a browser: nodes, links and the chosen node's parameters are
// shown, keys work, no name breaks out of its text, and a scene of thousands stays quick.
//
// Usage: scripts/with_node tests/npm/check_graph.js BINARY [FOLDER FOR SCREENSHOTS]
const assert = require('node:assert/strict');
const { execFileSync } = require('node:child_process');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const test = require('node:test');
const { pathToFileURL } = require('node:url');
const { chromium } = require('playwright-core');

const ROOT = path.resolve(__dirname, '../..');
const BINARY = path.resolve(process.argv[2]);
const FOLDER = fs.mkdtempSync(path.join(os.tmpdir(), 'sulva_graph_'));
const PICTURES = process.argv[3];
let browser;

test.before(async () => {
  browser = await chromium.launch({ executablePath: '/usr/bin/chromium', args: ['--no-sandbox'] });
});
test.after(async () => {
  await browser?.close();
  fs.rmSync(FOLDER, { recursive: true, force: true });
});

function makePage(scene, name) {
  const file = path.join(FOLDER, name);
  execFileSync(BINARY, ['graph', scene, '--html', file], { cwd: ROOT });
  return file;
}

// Opens a page and collects what must not happen: requests to elsewhere and errors.
async function open(file, hash = '', scheme = 'light') {
  const page = await browser.newPage({ viewport: { width: 1600, height: 950 }, colorScheme: scheme });
  page.faults = [];
  page.on('request', (r) => { if (!r.url().startsWith('file:')) page.faults.push(r.url()); });
  page.on('pageerror', (error) => page.faults.push(String(error)));
  page.on('console', (message) => { if (message.type() === 'error') page.faults.push(message.text()); });
  await page.goto(pathToFileURL(file) + hash);
  return page;
}

const whole = '.card:not(.again)';
const chosenName = (page) => page.locator('aside h2').textContent();
const texts = (page, selector) => page.locator(selector).allTextContents();
async function row(page, name) {
  return page.locator(`aside .row[data-parameter="${name}"]`).innerText();
}
async function picture(page, name) {
  const bytes = await page.screenshot();
  if (PICTURES) fs.writeFileSync(path.join(PICTURES, name), bytes);
}

test('the plume: nodes by stage and list, links, parameters', async () => {
  const page = await open(makePage('scenes/plume.json', 'plume.html'));
  assert.equal(await page.locator(whole).count(), 30);
  const headings = await texts(page, '.column h2');
  for (const heading of ['Objects', '3  Volumes', '5  Emitters', '6  Advection', '10  Pressure', 'Exports'])
    assert.ok(headings.includes(heading), heading);
  const advection = page.locator('.column', { hasText: '6  Advection' });
  assert.deepEqual(await advection.locator('b').allTextContents(), ['move smoke', 'move heat', 'move gas']);
  const pressure = page.locator('.column', { hasText: '10  Pressure' });
  assert.deepEqual(await pressure.locator('.again b').allTextContents(), ['gas']);
  const path = await page.locator('#links .all').getAttribute('d');
  const links = Number((await page.locator('#facts').textContent()).match(/(\d+) links/)[1]);
  assert.equal(path.split('M').length - 1, links, 'every link is drawn');

  await page.locator(whole, { hasText: 'lift' }).click();
  assert.equal(await chosenName(page), 'lift');
  assert.deepEqual(await texts(page, '.links.uses button'), ['heat', 'smoke']);
  assert.deepEqual(await texts(page, '.links.used button'), ['gas']);
  assert.equal(await page.locator('#links .uses').count(), 2);
  const coefficient = await row(page, 'temperature_coefficient');
  assert.match(coefficient, /0\.03[^]*per degree above[^]*default 0\.0015/);
  await picture(page, 'plume_stages.png');

  await page.locator('.links.used button').click();
  assert.match(await row(page, 'wall_high_y'), /open[^]*default closed/);
  assert.match(await row(page, 'box_size'), /250, 330, 200\s*host/);
  await page.getByText('only what differs').click();
  assert.equal(await page.locator('aside .row:not(.set)').count(), 0);
  await page.locator('#by-list').click();
  assert.equal(await page.locator(whole).count(), 30);
  assert.ok((await texts(page, '.column h2')).includes('Solvers'));
  assert.equal(await chosenName(page), 'gas', 'the choice stays');
  await picture(page, 'plume_lists.png');

  // No card covers another, and links end at cards.
  const overlaps = await page.evaluate(() => {
    const boxes = [...document.querySelectorAll('.card')].map((c) => c.getBoundingClientRect());
    return boxes.filter((a, i) => boxes.some((b, j) => i < j && a.left < b.right && b.left < a.right &&
      a.top < b.bottom && b.top < a.bottom)).length;
  });
  assert.equal(overlaps, 0);
  assert.deepEqual(page.faults, []);
});

test('an obstacle, keyed values, curves and gradients in the dark', async () => {
  const page = await open(makePage('scenes/smoke_sculpt.json', 'sculpt.html'), '#scene%2Fsculpture', 'dark');
  assert.equal(await chosenName(page), 'sculpture', 'an address can name a node');
  assert.match(await page.locator('aside').innerText(), /OBSTACLE[^]*friction/i);
  await page.goto(page.url().replace(/#.*/, '#scene/breath'));
  assert.equal(await chosenName(page), 'breath');
  assert.equal(await page.locator('aside .row[data-parameter=curve] svg path').count(), 1);
  await picture(page, 'sculpt_dark.png');
  assert.deepEqual(page.faults, []);
});

test('keys alone reach everything', async () => {
  const page = await open(path.join(FOLDER, 'plume.html'));
  await page.keyboard.press('ArrowDown');
  assert.equal(await chosenName(page), 'urn');
  await page.keyboard.press('ArrowDown');
  assert.equal(await chosenName(page), 'ball');
  await page.keyboard.press('ArrowRight');
  assert.notEqual(await chosenName(page), 'ball');
  await page.keyboard.press('/');
  await page.keyboard.type('buoyancy');
  assert.equal(await page.locator('.card.found').count(), 1);
  await page.keyboard.press('Enter');
  assert.equal(await chosenName(page), 'lift');
  await page.keyboard.press('v');
  assert.equal(await page.locator('#by-list').getAttribute('aria-pressed'), 'true');
  await page.keyboard.press('Tab');
  await page.keyboard.press('Enter');
  assert.equal(await chosenName(page), 'heat', 'Tab leads from a card to its links');
  await page.keyboard.press('Escape');
  assert.equal(await page.locator('.card[aria-current=true]').count(), 0);
  assert.deepEqual(page.faults, []);
});

test('names are text, whatever they hold', async () => {
  const names = ['</script><script>window.broken = 1</script>', '<img src=x onerror="window.broken = 1">',
    '"quoted" \'twice\'', '{{title}} &amp; {{data}}', 'ünï – 煙 \u2028', '<!--<script>'];
  const children = names.map((name) => ({ type: 'channel_scalar', name }));
  children.push({ type: 'gridemitter', name: 'source' });
  const scene = path.join(FOLDER, '<b>evil&.json');
  fs.writeFileSync(scene, JSON.stringify({ sulva: 1, nodes: [{ type: 'server', name: 's', children }] }));
  const page = await open(makePage(scene, 'evil.html'));
  const shown = await texts(page, '.card b');
  for (const name of names) assert.ok(shown.includes(name), name);
  await page.getByText(names[0]).click();
  assert.equal(await chosenName(page), names[0]);
  assert.equal(await page.evaluate(() => window.broken), undefined);
  assert.match(await page.title(), /^<b>evil&\.json/);
  assert.deepEqual(page.faults, []);
});

test('three thousand nodes open and answer quickly', async () => {
  const children = [];
  for (let i = 0; i < 1000; ++i) {
    children.push({ type: 'channel_scalar', name: `c${i}` }, { type: 'emission_setting', name: `e${i}` },
      { type: 'channelsettings', name: `p${i}`, parameters: { channel: `c${i}`, settings: `e${i}` } });
  }
  const scene = path.join(FOLDER, 'big.json');
  fs.writeFileSync(scene, JSON.stringify({ sulva: 1, nodes: [{ type: 'server', name: 's', children }] }));
  const page = await open(makePage(scene, 'big.html'));
  assert.equal(await page.locator(whole).count(), 3001);
  const spent = await page.evaluate(() => {
    const start = performance.now();
    document.querySelector('[data-node="1500"]').click();
    document.body.getBoundingClientRect();
    return performance.now() - start;
  });
  assert.equal(await page.locator('.card[aria-current=true]').count(), 1);
  assert.ok(spent < 2000, `${spent} ms to choose one`);
  assert.deepEqual(page.faults, []);
});
