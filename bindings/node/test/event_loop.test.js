// SPDX-License-Identifier: MIT
// The event loop keeps running while the addon works: a 10 ms interval is
// never more than 50 ms late while parse reads a 20 MB message or parseMany
// goes through the corpus, and it fires throughout.
'use strict';
const test = require('node:test');
const assert = require('node:assert/strict');
const fs = require('node:fs');
const path = require('node:path');
const { performance } = require('node:perf_hooks');
const { tidewell, corpus } = require('./helper.js');

// Starts a 10 ms interval; the returned function stops it and tells the
// worst lateness and how often it fired.
function watch() {
  let last = performance.now();
  let worst = 0;
  let ticks = 0;
  const timer = setInterval(() => {
    const now = performance.now();
    worst = Math.max(worst, now - last - 10);
    last = now;
    ticks++;
  }, 10);
  return () => {
    clearInterval(timer);
    return { worst, ticks };
  };
}

// About 20 MB: a long quoted-printable text and a base64 attachment, so
// that the parse takes a while and the text handed back is long.
function bigMessage() {
  const line = 'Caf=C3=A9 au lait, Stra=C3=9Fe und Ma=C3=B1ana: the quarterly figures follow, line by line.=\n';
  const text = line.repeat(Math.ceil((12 << 20) / line.length));
  const data = Buffer.alloc(6 << 20, 'tidewell').toString('base64').replace(/.{76}/g, '$&\n');
  return Buffer.from(
    'From: Ann <ann@example.com>\nSubject: big\nMIME-Version: 1.0\nContent-Type: multipart/mixed; boundary=b\n\n' +
      `--b\nContent-Type: text/plain; charset=utf-8\nContent-Transfer-Encoding: quoted-printable\n\n${text}\n` +
      `--b\nContent-Type: application/octet-stream; name=a.bin\nContent-Transfer-Encoding: base64\n\n${data}\n--b--\n`,
  );
}

test('parse of a 20 MB message leaves the event loop running', async () => {
  const big = bigMessage();
  assert.ok(big.length > 20e6);
  const stop = watch();
  const started = performance.now();
  const m = await tidewell.parse(big);
  const took = performance.now() - started;
  const { worst, ticks } = stop();
  assert.equal(m.attachments[0].size, 6 << 20);
  assert.ok(m.text.startsWith('Café au lait'));
  assert.ok(worst < 50, `the interval was ${worst.toFixed(1)} ms late`);
  // The parse is long enough to say something, and the timer ran during it.
  assert.ok(took > 40 && ticks >= took / 10 / 3, `${ticks} ticks in ${took.toFixed(0)} ms`);
});

test('parseMany through the corpus leaves the event loop running', { skip: !corpus }, async () => {
  const files = tidewell.listFiles(corpus);
  const stop = watch();
  const started = performance.now();
  let n = 0;
  for await (const m of tidewell.parseMany(files, { concurrency: 2 })) n += m.imported ? 1 : 0;
  const took = performance.now() - started;
  const { worst, ticks } = stop();
  assert.equal(n, files.length);
  assert.ok(worst < 50, `the interval was ${worst.toFixed(1)} ms late`);
  assert.ok(took < 100 || ticks >= took / 10 / 3, `${ticks} ticks in ${took.toFixed(0)} ms`);
});
