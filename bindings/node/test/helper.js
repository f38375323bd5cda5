// SPDX-License-Identifier: MIT
// Where the tests find things: the module (the build's staged package when
// CTest names it in TIDEWELL_NODE_PACKAGE, else this package, built by npm
// install), the source tree, the shared corpus beside the checkout (tests
// that need it are skipped without it) and the built tidewell-import
// (TIDEWELL_IMPORT, set by CTest).
'use strict';
const fs = require('node:fs');
const path = require('node:path');
const { spawnSync } = require('node:child_process');

const packageDir = process.env.TIDEWELL_NODE_PACKAGE ?? path.resolve(__dirname, '..');
const source = process.env.TIDEWELL_SOURCE_DIR ?? path.resolve(__dirname, '..', '..', '..');
const corpusDir = path.resolve(source, '..', 'shared', 'corpus', 'messages');

// The records tidewell-import --json prints for these arguments, parsed.
function cliRecords(...args) {
  const done = spawnSync(process.env.TIDEWELL_IMPORT, ['--json', '--quiet', ...args], { maxBuffer: 1 << 30 });
  return done.stdout.toString('utf8').split('\n').filter(Boolean).map((line) => JSON.parse(line));
}

module.exports = {
  tidewell: require(packageDir),
  packageDir,
  source,
  examples: path.join(source, 'examples'),
  corpus: fs.existsSync(corpusDir) ? corpusDir : null,
  cli: process.env.TIDEWELL_IMPORT ?? null,
  cliRecords,
};
