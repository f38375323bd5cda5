// SPDX-License-Identifier: MIT
// The ES module entry: the same functions as the CommonJS one (index.js),
// which loads the addon, so both kinds of import share one copy of it.
import { createRequire } from 'node:module';

const require = createRequire(import.meta.url);
const tidewell = require('./index.js');

export const { parse, parseSync, parseMany, messages, listFiles, toRecord } = tidewell;
export default tidewell;
