// SPDX-License-Identifier: MIT
// The records are the command-line tool's: for every message of the shared
// corpus, whichever way it reaches the addon (the walk, a path, bytes), and
// for mbox messages and the problems list; the fields' JavaScript types.
'use strict';
const test = require('node:test');
const assert = require('node:assert/strict');
const crypto = require('node:crypto');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const { once } = require('node:events');
const { Worker } = require('node:worker_threads');
const { tidewell, examples, corpus, cli, cliRecords, packageDir } = require('./helper.js');

const digest = (record) => crypto.createHash('sha256').update(JSON.stringify(record)).digest('hex');
const byPath = (records) => new Map(records.map((r) => [`${r.path}:${r.message ?? 0}`, digest(r)]));

// Lists the keys whose records differ, so a failure names the messages.
function assertSameRecords(got, expected) {
  const want = byPath(expected);
  const have = byPath(got);
  const differing = [...want].filter(([key, value]) => have.get(key) !== value).map(([key]) => key);
  assert.deepEqual(differing, [], `${differing.length} records differ from tidewell-import's`);
  assert.equal(have.size, want.size);
}

test('every corpus message gives the record tidewell-import --json prints', { skip: !corpus || !cli }, async () => {
  const expected = cliRecords(corpus);
  assert.ok(expected.length > 1000);
  const walked = [];
  for await (const m of tidewell.messages(corpus, { concurrency: 2 })) walked.push(tidewell.toRecord(m));
  // The walk's order is the tool's.
  assert.deepEqual(walked.map((r) => r.path), expected.map((r) => r.path));
  assertSameRecords(walked, expected);

  const paths = expected.map((r) => r.path);
  const many = [];
  for await (const m of tidewell.parseMany(paths, { concurrency: 1 })) many.push(tidewell.toRecord(m));
  assertSameRecords(many, expected);

  // From bytes the record has no path; parse and parseSync agree with it.
  for (const [i, file] of paths.entries()) {
    if (i % 7 !== 0) continue;
    const bytes = fs.readFileSync(file);
    const fromBytes = { ...tidewell.toRecord(await tidewell.parse(bytes)), path: file };
    assert.equal(digest(fromBytes), digest(expected[i]), file);
    assert.deepEqual(tidewell.parseSync(file), await tidewell.parse(file), file);
  }
});

test('mbox messages and the problems list match too', { skip: !cli }, async (t) => {
  const dir = fs.mkdtempSync(path.join(os.tmpdir(), 'tidewell-node-'));
  t.after(() => fs.rmSync(dir, { recursive: true, force: true }));
  const mbox = path.join(dir, 'box');
  const parts = fs.readdirSync(examples).filter((f) => f.endsWith('.eml')).sort();
  fs.writeFileSync(mbox, parts.map((f) => `From ann@example.com Thu Oct  2 14:03:09 2025\n${fs.readFileSync(path.join(examples, f), 'latin1')}\n`).join(''), 'latin1');
  const walked = [];
  for await (const m of tidewell.messages(mbox, { mbox: true, problems: true })) walked.push(tidewell.toRecord(m));
  assert.equal(walked.length, parts.length);
  assert.deepEqual(walked.map((r) => r.message), parts.map((_, i) => i + 1));
  assertSameRecords(walked, cliRecords('--mbox', '--problems', mbox));

  const problems = [];
  for await (const m of tidewell.parseMany(parts.map((f) => path.join(examples, f)), { problems: true }))
    problems.push(tidewell.toRecord(m));
  assertSameRecords(problems, cliRecords('--problems', ...parts.map((f) => path.join(examples, f))));
});

test('the fields have their JavaScript types', async () => {
  const small = Buffer.from(
    'From: "Ann Example" <ann@example.com>\nTo: bob@example.org, Carol <carol@example.net>\n' +
      'Subject: =?utf-8?q?caf=C3=A9?=\nDate: Tue, 7 Oct 2025 03:30:00 +0200\nMessage-ID: <id-1@example.com>\n' +
      'References: <a@x> <b@x>\n\nHello.\n',
    'latin1',
  );
  const m = await tidewell.parse(small);
  assert.equal(m.subject, 'café');
  assert.deepEqual(m.from, [{ name: 'Ann Example', address: 'ann@example.com' }]);
  assert.deepEqual(m.to.map((a) => a.address), ['bob@example.org', 'carol@example.net']);
  assert.ok(m.date.value instanceof Date);
  assert.deepEqual([m.date.value.toISOString(), m.date.offset, m.date.text], ['2025-10-07T01:30:00.000Z', 120, '2025-10-07T03:30:00+02:00']);
  assert.deepEqual([m.messageId, m.inReplyTo, m.references, m.received], ['id-1@example.com', null, ['a@x', 'b@x'], null]);
  assert.equal(m.text, 'Hello.\n');
  assert.deepEqual([m.path, m.imported, 'cut' in m, 'problems' in m], [null, true, false, false]);
  // Every kind of bytes, and the ES module, give the same.
  assert.deepEqual(tidewell.parseSync(new Uint8Array(small)), m);
  assert.deepEqual(tidewell.parseSync(small.buffer.slice(small.byteOffset, small.byteOffset + small.length)), m);
  const esm = await import(path.join(packageDir, 'index.mjs'));
  assert.deepEqual(await esm.parse(small), m);
  assert.equal(esm.default.parseSync, tidewell.parseSync);
  assert.equal(tidewell.parseSync(small, { maxBytes: 40 }).cut, true);
  assert.equal(tidewell.parseSync(small, { reading: 'desktop' }).to.length, 1);
  // A fresh module registry (as test runners make) loads index.js again over
  // the same addon, and a worker thread has an addon instance of its own.
  const entry = require.resolve(path.join(packageDir, 'index.js'));
  delete require.cache[entry];
  assert.deepEqual(require(entry).parseSync(small), m);
  const worker = new Worker(`const t = require(${JSON.stringify(entry)});
    t.parse(require('node:worker_threads').workerData).then((m) => require('node:worker_threads').parentPort.postMessage(m));`,
  { eval: true, workerData: small });
  const [fromWorker] = await once(worker, 'message');
  assert.deepEqual(fromWorker, m);
  const a = tidewell.parseSync(path.join(examples, 'mixed-attachment.eml')).attachments[0];
  assert.deepEqual(Object.keys(a), ['fileName', 'mediaType', 'size', 'contentId', 'disposition']);
  assert.ok(a.size > 0);
});
