// SPDX-License-Identifier: MIT
// Nothing grows: 100,000 parses (promises, synchronous calls, parseMany
// batches) leave the JavaScript heap and the resident set where a warm-up
// left them. Compared as ratios, so the test says the same on any machine.
'use strict';
const test = require('node:test');
const assert = require('node:assert/strict');
const v8 = require('node:v8');
const vm = require('node:vm');
const { tidewell } = require('./helper.js');

v8.setFlagsFromString('--expose-gc');
const gc = vm.runInNewContext('gc');

const SMALL = Buffer.from(
  'From: "Ann Example" <ann@example.com>\nTo: bob@example.org, Carol <carol@example.net>\n' +
    'Subject: =?utf-8?q?caf=C3=A9?=\nDate: Tue, 7 Oct 2025 03:30:00 +0200\n' +
    'Message-ID: <id-1@example.com>\nReferences: <a@x> <b@x>\n\nHello \xff.\n',
  'latin1',
);

async function round(count) {
  for (let i = 0; i < count; i += 100) {
    const pending = [];
    for (let j = 0; j < 98; j++) pending.push(tidewell.parse(SMALL, { problems: j % 2 === 0 }));
    tidewell.parseSync(SMALL);
    await Promise.all([...pending, tidewell.parse('/nonexistent/tidewell').catch(() => null)]);
  }
  const sources = { *[Symbol.iterator]() { for (let i = 0; i < count / 5; i++) yield SMALL; } };
  for await (const m of tidewell.parseMany(sources, { concurrency: 2 })) assert.equal(m.subject, 'café');
}

async function settled() {
  for (let i = 0; i < 3; i++) {
    gc();
    await new Promise((resolve) => setImmediate(resolve));
  }
  return { heap: process.memoryUsage().heapUsed, rss: process.memoryUsage().rss };
}

test('100,000 parses grow neither the heap nor the resident set', async () => {
  await round(30_000);
  const before = await settled();
  await round(100_000);
  const after = await settled();
  if (process.env.TIDEWELL_TEST_VERBOSE) console.log(before, after);
  assert.ok(after.heap < before.heap * 1.2, `heap ${before.heap} -> ${after.heap}`);
  assert.ok(after.rss < before.rss * 1.25, `rss ${before.rss} -> ${after.rss}`);
});
