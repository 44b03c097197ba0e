// Holds the schema of scene files against the scenes: every good one is valid by an independent
// validator, every bad one is refused, and an editor offers what the schema knows.
//
// Usage: scripts/with_node tests/npm/check_schema.js
const assert = require('node:assert/strict');
const fs = require('node:fs');
const path = require('node:path');
const test = require('node:test');
const Ajv = require('ajv/dist/2020').default;
const jsonc = require('jsonc-parser');
const editor = require('vscode-json-languageservice');

const ROOT = path.resolve(__dirname, '../..');
const SCHEMA_FILE = path.join(ROOT, 'docs/sulva.schema.json');
const SCHEMA = JSON.parse(fs.readFileSync(SCHEMA_FILE, 'utf8'));
const validate = new Ajv({ allErrors: true }).compile(SCHEMA);

// Mistakes of bad scenes that only `sulva check` sees: names and links, files, order, repetition.
const BEYOND_A_SCHEMA = new Set(fs.readFileSync(path.join(__dirname, 'beyond_a_schema.txt'), 'utf8')
  .split('\n').filter((line) => line && !line.startsWith('#')));

function scenesIn(folder) {
  return fs.readdirSync(path.join(ROOT, folder)).filter((name) => name.endsWith('.json'))
    .map((name) => path.join(ROOT, folder, name));
}

function read(file) {
  const problems = [];
  const bytes = fs.readFileSync(file);
  const text = bytes.toString('utf8');
  const scene = jsonc.parse(text, problems, { allowTrailingComma: false });
  const isText = Buffer.from(text, 'utf8').equals(bytes);
  return { scene, isJson: problems.length === 0 && isText };
}

const READY = ['scenes', 'scenes/tutorial'];

for (const folder of [...READY, 'tests/scenes']) {
  test(`scenes in ${folder} are valid`, () => {
    assert.ok(scenesIn(folder).length > 0);
    for (const file of scenesIn(folder)) {
      const { scene, isJson } = read(file);
      assert.ok(isJson, `${file} is JSON with comments`);
      assert.ok(validate(scene), `${file}: ${JSON.stringify(validate.errors?.slice(-3))}`);
    }
  });
}

test('ready-made scenes point to the schema', () => {
  for (const folder of READY) {
    for (const file of scenesIn(folder)) {
      const target = read(file).scene.$schema;
      assert.ok(target, `${file} has a "$schema"`);
      assert.equal(path.resolve(path.dirname(file), target), SCHEMA_FILE);
    }
  }
});

test('bad scenes are refused, but for mistakes beyond a schema', () => {
  const seen = new Set();
  for (const file of scenesIn('tests/bad_scenes')) {
    const name = path.basename(file, '.json');
    const { scene, isJson } = read(file);
    const isBeyond = BEYOND_A_SCHEMA.has(name) || name.startsWith('warns_');
    assert.equal(isJson && validate(scene), isBeyond, name);
    seen.add(name);
  }
  for (const name of BEYOND_A_SCHEMA) assert.ok(seen.has(name), `${name} is a bad scene`);
});

// What an editor offers at the `|` of a scene, and what it says of the word before it.
async function inEditor(text) {
  const at = text.indexOf('|');
  const source = text.replace('|', '');
  const service = editor.getLanguageService({});
  service.configure({ schemas: [{ uri: 'sulva', fileMatch: ['*'], schema: SCHEMA }] });
  const document = editor.TextDocument.create('file:///scene.json', 'jsonc', 1, source);
  const parsed = service.parseJSONDocument(document);
  const place = document.positionAt(at);
  const offered = await service.doComplete(document, place, parsed);
  const hover = await service.doHover(document, document.positionAt(at - 2), parsed);
  return {
    words: offered.items.map((item) => item.label.replaceAll('"', '')),
    hover: hover ? JSON.stringify(hover.contents) : '',
    problems: (await service.doValidation(document, parsed)).map((problem) => problem.message),
  };
}

const scene = (node) => `{ "sulva": 1, "nodes": [ { "type": "server", "children": [ ${node} ] } ] }`;

test('an editor completes kinds, parameters and choices, and tells ranges and help', async () => {
  const kinds = await inEditor(scene('{ "type": "grid|" }'));
  for (const kind of ['gridemitter', 'fluid', 'channel_scalar']) assert.ok(kinds.words.includes(kind));
  assert.ok(!kinds.words.includes('1300005'), 'ids would only be in the way');

  const fluid = (rest) => inEditor(scene(`{ "type": "fluid", "parameters": { ${rest} } }`));
  const names = await fluid('"|"');
  for (const name of ['box_size', 'forces', 'linear_solver']) assert.ok(names.words.includes(name));
  assert.ok(!names.words.includes('burn_rate'), 'parameters of other kinds stay out');

  const choice = await fluid('"linear_solver": "|"');
  assert.ok(choice.words.includes('multigrid'));
  assert.ok(!choice.words.includes('0'));
  const hover = await fluid('"linear_solver|": "multigrid"');
  assert.ok(hover.hover.length > 10, hover.hover);
  assert.deepEqual(hover.problems, []);

  const server = await inEditor(
    '{ "sulva": 1, "nodes": [ { "type": "server", "parameters": { "cell_size|": -1 } } ] }');
  assert.match(server.problems.join(), /below the minimum/);
});
