// SPDX-License-Identifier: MIT
// What callers get wrong or cannot help: wrong argument types (TypeError),
// bad option values (RangeError), paths that cannot be read (Node's system
// errors for parse, records that say so in a stream), streams given up
// early, async and slow inputs, and an input that fails midway.
'use strict';
const test = require('node:test');
const assert = require('node:assert/strict');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const { pathToFileURL } = require('node:url');
const { tidewell, examples, cli, cliRecords } = require('./helper.js');

const PLAIN = path.join(examples, 'plain.eml');
const collect = async (iterable) => {
  const out = [];
  for await (const m of iterable) out.push(m);
  return out;
};

test('wrong types are TypeErrors, bad values RangeErrors, at the call', () => {
  const cases = [
    [() => tidewell.parse(5), TypeError],
    [() => tidewell.parse(null), TypeError],
    [() => tidewell.parse({ path: PLAIN }), TypeError],
    [() => tidewell.parse(new Uint16Array(4)), TypeError],
    [() => tidewell.parseSync(), TypeError],
    [() => tidewell.parseSync('a\0b'), TypeError],
    [() => tidewell.parse(PLAIN, 'full'), TypeError],
    [() => tidewell.parse(PLAIN, { problems: 'yes' }), TypeError],
    [() => tidewell.parse(PLAIN, { maxBytes: 1.5 }), TypeError],
    [() => tidewell.parse(PLAIN, { maxBytes: -1 }), RangeError],
    [() => tidewell.parse(PLAIN, { reading: 'fast' }), RangeError],
    [() => tidewell.parseMany(5), TypeError],
    [() => tidewell.parseMany(PLAIN), TypeError],
    [() => tidewell.parseMany([PLAIN], { concurrency: 0 }), RangeError],
    [() => tidewell.parseMany([PLAIN], { concurrency: '2' }), TypeError],
    [() => tidewell.messages(Buffer.from('x')), TypeError],
    [() => tidewell.messages(examples, { mbox: 1 }), TypeError],
    [() => tidewell.toRecord({}), TypeError],
  ];
  for (const [call, type] of cases) assert.throws(call, type, call.toString());
});

test('a path that cannot be read is a system error for parse, a record in a stream', async (t) => {
  const dir = fs.mkdtempSync(path.join(os.tmpdir(), 'tidewell-node-'));
  t.after(() => fs.rmSync(dir, { recursive: true, force: true }));
  const missing = path.join(dir, 'missing.eml');
  const expected = { code: 'ENOENT', errno: -2, syscall: 'open', path: missing };
  await assert.rejects(tidewell.parse(missing), { ...expected, message: `ENOENT: no such file or directory, open '${missing}'` });
  assert.throws(() => tidewell.parseSync(missing), expected);
  await assert.rejects(tidewell.parse(dir), { code: 'EISDIR', errno: -21, path: dir });
  if (process.getuid() !== 0) {
    const locked = path.join(dir, 'locked.eml');
    fs.writeFileSync(locked, 'Subject: x\n\n', { mode: 0 });
    await assert.rejects(tidewell.parse(locked), { code: 'EACCES' });
  }
  const records = await collect(tidewell.parseMany([PLAIN, missing, pathToFileURL(PLAIN)]));
  assert.deepEqual(records.map((m) => [m.imported, m.error ?? null]), [[true, null], [false, 'No such file or directory'], [true, null]]);
  if (cli) assert.deepEqual(tidewell.toRecord(records[1]), cliRecords(missing)[0]);
  const walked = await collect(tidewell.messages(missing));
  assert.deepEqual(walked.map(tidewell.toRecord), records.slice(1, 2).map(tidewell.toRecord));
});

test('parseMany: input order, async and slow inputs, a failing input, an early stop', async () => {
  const files = fs.readdirSync(examples).filter((f) => f.endsWith('.eml')).sort().map((f) => path.join(examples, f));
  const subjects = files.map((f) => tidewell.parseSync(f).subject);
  const sources = Array.from({ length: 200 }, (_, i) => (i % 2 ? files[i % files.length] : fs.readFileSync(files[i % files.length])));
  const want = sources.map((_, i) => subjects[i % files.length]);
  for (const concurrency of [1, 3])
    assert.deepEqual((await collect(tidewell.parseMany(sources, { concurrency }))).map((m) => m.subject), want);
  async function* slow() {
    for (const [i, s] of sources.entries()) {
      if (i % 9 === 0) await new Promise((resolve) => setTimeout(resolve, i % 4));
      yield s;
    }
  }
  assert.deepEqual((await collect(tidewell.parseMany(slow(), { concurrency: 2 }))).map((m) => m.subject), want);

  // An element of the wrong type, or an input that throws: the messages
  // before it come first, then the error.
  const seen = [];
  await assert.rejects(async () => {
    for await (const m of tidewell.parseMany([PLAIN, PLAIN, 42, PLAIN])) seen.push(m.subject);
  }, TypeError);
  assert.equal(seen.length, 2);
  function* failing() {
    yield PLAIN;
    throw new Error('input failed');
  }
  await assert.rejects(collect(tidewell.parseMany(failing())), /input failed/);

  // Giving up early closes the input, which is read no further than the window.
  let pulled = 0;
  let closed = false;
  function* endless() {
    try {
      for (;;) {
        pulled++;
        yield PLAIN;
      }
    } finally {
      closed = true;
    }
  }
  for await (const m of tidewell.parseMany(endless(), { concurrency: 2 })) if (m) break;
  // The batch being read from, and at most 2c + 1 held behind it: a batch
  // queued behind each thread's and one finished.
  assert.ok(closed && pulled <= 32 * (2 * 2 + 2), `pulled ${pulled}`);
  // An async input that never yields again does not hold up the break.
  async function* stalled() {
    yield PLAIN;
    await new Promise(() => {});
  }
  for await (const m of tidewell.parseMany(stalled())) if (m) break;
});
