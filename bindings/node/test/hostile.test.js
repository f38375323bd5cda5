// SPDX-License-Identifier: MIT
// Hostile bytes never crash the process: the fuzz targets' seeds (cut at
// run time from the examples and the corpus by fuzz/make-seeds), whole and
// mangled, through every reading, in a child process so that a crash fails
// this test rather than ending the run.
'use strict';
const test = require('node:test');
const assert = require('node:assert/strict');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const { spawnSync } = require('node:child_process');
const { source, packageDir, examples } = require('./helper.js');

const CHILD = `
const tidewell = require(process.argv[1]);
const fs = require('node:fs');
const path = require('node:path');
const files = [];
const walk = (dir) => { for (const e of fs.readdirSync(dir, { withFileTypes: true }))
  e.isDirectory() ? walk(path.join(dir, e.name)) : files.push(path.join(dir, e.name)); };
walk(process.argv[2]);
(async () => {
  const inputs = [];
  for (const file of files) {
    const data = fs.readFileSync(file);
    for (const reading of ['full', 'desktop']) tidewell.toRecord(tidewell.parseSync(data, { reading, problems: true }));
    const mangled = Buffer.concat([data.subarray(1), Buffer.from([0xff, 0, 0xfe])]);
    inputs.push(mangled, file);
    tidewell.parseSync(mangled, { maxBytes: data.length >> 1 });
  }
  let n = 0;
  for await (const m of tidewell.parseMany(inputs, { concurrency: 2, problems: true })) n += tidewell.toRecord(m) ? 1 : 0;
  for await (const m of tidewell.messages(process.argv[2], { mbox: true })) n += m.schema;
  console.log(files.length, n);
})();
`;

test('the fuzz seeds, whole and mangled, never crash', (t) => {
  const shm = fs.existsSync('/dev/shm') ? '/dev/shm' : os.tmpdir();
  const dir = fs.mkdtempSync(path.join(shm, 'tidewell-node-seeds-'));
  t.after(() => fs.rmSync(dir, { recursive: true, force: true }));
  const seeds = spawnSync('python3', [path.join(source, 'fuzz', 'make-seeds'), path.join(dir, 'seeds'), '65536']);
  assert.equal(seeds.status, 0, seeds.stderr.toString());
  const done = spawnSync(process.execPath, ['-e', CHILD, packageDir, path.join(dir, 'seeds')], { encoding: 'utf8' });
  assert.equal(done.signal, null, done.stderr);
  assert.equal(done.status, 0, done.stderr);
  const [files] = done.stdout.trim().split(' ').map(Number);
  assert.ok(files > 100, done.stdout);
});

// Worker threads ended at every stage: while they load the addon, while
// their streams' threads still parse, and while finished batches wait to be
// delivered. Ending one must never end the process.
const WORKERS = `
const { Worker } = require('node:worker_threads');
const [entry, examples] = process.argv.slice(1);
const body = \`const t = require(\${JSON.stringify(entry)});
const paths = t.listFiles(\${JSON.stringify(examples)});
const all = Array.from({ length: 400 }, () => paths).flat();
(async () => { let n = 0;
  for await (const m of t.parseMany(all, { concurrency: 2 }))
    if (++n === 40) require('node:worker_threads').parentPort.postMessage('parsing'); })();\`;
(async () => {
  for (let round = 0; round < 24; round++) {
    const worker = new Worker(body, { eval: true });
    if (round % 4 === 0) await new Promise((r) => setTimeout(r, round));
    else await new Promise((r) => worker.once('message', () => setTimeout(r, round % 4 === 1 ? 0 : round)));
    await worker.terminate();
  }
  console.log('ended');
})();
`;

test('worker threads ended while they parse leave the process running', () => {
  const done = spawnSync(process.execPath, ['-e', WORKERS, packageDir, examples], { encoding: 'utf8' });
  assert.equal(done.signal, null, done.stderr);
  assert.equal(done.status, 0, done.stderr);
  assert.equal(done.stdout.trim(), 'ended');
});
