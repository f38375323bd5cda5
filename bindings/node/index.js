// SPDX-License-Identifier: MIT
// tidewell for Node.js: one e-mail message in, its subject, addresses, dates,
// text and attachment names out, parsed by the C++ library off the
// JavaScript thread so that the event loop keeps running.
//
// This file checks the arguments (a TypeError says what was wrong in the
// caller's terms) and runs the streams: parseMany and messages keep a small
// window of batches with the addon's threads and give the messages back in input order,
// pulling from the input only as the window empties, so memory stays bounded
// however long the input is. The addon (src/addon.cc) does the parsing and
// builds each message as a plain object: the command-line tool's JSON record
// with camelCase keys; toRecord turns it back into that record exactly.
'use strict';

const os = require('node:os');
const path = require('node:path');
const { fileURLToPath } = require('node:url');

const native = require(path.join(__dirname, 'build', 'Release', 'tidewell.node'));

// The addon makes its objects with these: a literal gives each object its
// final shape at once, which is cheaper than building it property by
// property from C++. A record's optional keys (pathBytes, message, error,
// problems, cut) are undefined when absent and then left out, in the order
// of the JSON record.
function makeRecord(path, pathBytes, message, imported, error, subject, from, sender, replyTo, to, cc, bcc, date,
  received, messageId, inReplyTo, references, text, attachments, problems, cut) {
  if (pathBytes === undefined && message === undefined && error === undefined && problems === undefined && !cut)
    return { schema: 1, path, imported, subject, from, sender, replyTo, to, cc, bcc, date, received, messageId,
      inReplyTo, references, text, attachments };
  const out = { schema: 1, path };
  if (pathBytes !== undefined) out.pathBytes = pathBytes;
  if (message !== undefined) out.message = message;
  out.imported = imported;
  if (error !== undefined) out.error = error;
  Object.assign(out, { subject, from, sender, replyTo, to, cc, bcc, date, received, messageId, inReplyTo,
    references, text, attachments });
  if (problems !== undefined) out.problems = problems;
  if (cut) out.cut = true;
  return out;
}

function makeMailboxes() {
  const out = new Array(arguments.length >> 1);
  for (let i = 0; i < out.length; i++) out[i] = { name: arguments[2 * i], address: arguments[2 * i + 1] };
  return out;
}

native.setFactories({
  record: makeRecord,
  mailboxes: makeMailboxes,
  date: (ms, offset, text) => ({ value: new Date(ms), offset, text }),
  attachment: (fileName, mediaType, size, contentId, disposition) => ({ fileName, mediaType, size, contentId, disposition }),
  problem: (code, offset, text, context) => ({ code, offset, text, context }),
});

// A batch: up to this many messages, or fewer once their bytes pass the
// budget. One hand-off to a thread costs about what a small message's parse does,
// so small messages go a few dozen at a time.
const BATCH_MESSAGES = 32;
const BATCH_BYTES = 4 << 20;

function typeName(value) {
  if (value === null) return 'null';
  if (typeof value === 'object') return value.constructor?.name ?? 'object';
  return typeof value;
}

// A source as the addon takes it: a Uint8Array (Buffer included), an
// ArrayBuffer or a path string; a file: URL becomes its path. null for
// anything else.
function sourceOf(source) {
  if (typeof source === 'string') {
    if (source.includes('\0')) {
      const error = new TypeError('tidewell: a path must not contain null bytes');
      error.code = 'ERR_INVALID_ARG_VALUE';
      throw error;
    }
    return source;
  }
  if (source instanceof Uint8Array || source instanceof ArrayBuffer) return source;
  if (source instanceof URL) return sourceOf(fileURLToPath(source));
  return null;
}

function checkedSource(source, where) {
  const out = sourceOf(source);
  if (out === null)
    throw new TypeError(
      `tidewell.${where} takes a Buffer, Uint8Array, ArrayBuffer, path string or file: URL, not ${typeName(source)}`,
    );
  return out;
}

// The options every function takes, as the addon reads them.
function settingsOf(options, where) {
  if (options === undefined || options === null) return {};
  if (typeof options !== 'object') throw new TypeError(`tidewell.${where}: options must be an object`);
  const out = {};
  const { reading = 'full', problems = false, maxBytes = null } = options;
  if (reading !== 'full' && reading !== 'desktop')
    throw new RangeError(`tidewell.${where}: reading must be "full" or "desktop", not ${JSON.stringify(reading)}`);
  out.desktop = reading === 'desktop';
  if (typeof problems !== 'boolean') throw new TypeError(`tidewell.${where}: problems must be a boolean`);
  out.problems = problems;
  if (maxBytes !== null) {
    if (typeof maxBytes !== 'number' || !Number.isInteger(maxBytes))
      throw new TypeError(`tidewell.${where}: maxBytes must be an integer or null`);
    if (maxBytes < 0) throw new RangeError(`tidewell.${where}: maxBytes must not be negative`);
    out.maxBytes = maxBytes;
  }
  return out;
}

function defaultConcurrency() {
  const processors = typeof os.availableParallelism === 'function' ? os.availableParallelism() : os.cpus().length;
  return Math.max(1, processors);
}

function concurrencyOf(options, where) {
  const value = options?.concurrency;
  if (value === undefined || value === null) return defaultConcurrency();
  if (typeof value !== 'number' || !Number.isInteger(value))
    throw new TypeError(`tidewell.${where}: concurrency must be an integer`);
  if (value < 1 || value > 1024) throw new RangeError(`tidewell.${where}: concurrency must be between 1 and 1024`);
  return value;
}

function parse(source, options) {
  const input = checkedSource(source, 'parse');
  const settings = settingsOf(options, 'parse');
  return native.parse(input, settings);
}

function parseSync(source, options) {
  const input = checkedSource(source, 'parseSync');
  const settings = settingsOf(options, 'parseSync');
  return native.parseSync(input, settings);
}

// The window shared by parseMany and messages. A stream of the addon's own
// has concurrency threads; submit(state, stream) hands it one batch and gives
// {batch: its promise}, or null when there is nothing more to hand (it may
// be async: parseMany waits for an async iterable); it is told how many
// batches are out. Each thread has one batch queued behind the one it
// works on, so it never waits for this thread to hand it the next: at most
// 2 * concurrency batches are out and 2 * concurrency + 1 held, finished or
// not. The batches come back in order: by their submission, or by the
// number the walk gave them.
async function* windowed(submit, concurrency, byWalk, onClose) {
  const ahead = 2 * concurrency;
  const limit = ahead + 1;
  const stream = native.openStream(concurrency);
  const queue = [];
  let running = 0;
  let ended = false;
  let closed = false;
  let failure = null;
  let submitted = 0;
  let wakePump = null;
  let wakeConsumer = null;
  const poke = () => {
    if (wakePump) wakePump();
    if (wakeConsumer) wakeConsumer();
    wakePump = wakeConsumer = null;
  };

  const hasRoom = () => running < ahead && queue.length < limit;
  const state = {
    get running() {
      return running;
    },
  };
  const pump = async () => {
    try {
      while (!ended && !closed) {
        if (!hasRoom()) {
          await new Promise((resolve) => (wakePump = resolve));
          continue;
        }
        // The batch's promise comes wrapped: an await would wait for it.
        const started = await submit(state, stream);
        if (started === null) {
          ended = true;
          break;
        }
        running++;
        const entry = { index: submitted++, promise: started.batch };
        entry.promise.then(
          (batch) => {
            running--;
            // A walk batch that reached the end: nothing more to ask for.
            if (byWalk && native.batchEnd(batch)) ended = true;
            poke();
          },
          () => {
            running--;
            poke();
          },
        );
        queue.push(entry);
        poke();
      }
    } catch (error) {
      failure = error;
      ended = true;
    }
    poke();
  };
  const pumping = pump();

  try {
    const waiting = new Map();
    let next = 0;
    for (;;) {
      if (queue.length === 0) {
        if (ended && running === 0) break;
        await new Promise((resolve) => (wakeConsumer = resolve));
        continue;
      }
      const entry = queue.shift();
      poke();
      const batch = await entry.promise;
      // One turn of the microtask queue first: the pump, woken by the same
      // batch, hands the threads their next one before this one is converted.
      await undefined;
      const [records, sequence] = native.take(batch);
      const key = byWalk ? sequence : entry.index;
      if (key < 0) continue;
      waiting.set(key, records);
      while (waiting.has(next)) {
        const ready = waiting.get(next);
        waiting.delete(next++);
        for (const message of ready) yield message;
      }
    }
    await pumping;
    if (failure) throw failure;
  } finally {
    closed = true;
    poke();
    native.closeStream(stream);
    if (onClose) onClose();
  }
}

function parseMany(sources, options) {
  if (typeof sources === 'string' || sources instanceof Uint8Array || sources instanceof ArrayBuffer)
    throw new TypeError('tidewell.parseMany takes an iterable of sources, not one source (use parse, or messages for a folder)');
  const isAsync = typeof sources?.[Symbol.asyncIterator] === 'function';
  if (!isAsync && typeof sources?.[Symbol.iterator] !== 'function')
    throw new TypeError(`tidewell.parseMany takes an iterable or async iterable, not ${typeName(sources)}`);
  const settings = settingsOf(options, 'parseMany');
  const concurrency = concurrencyOf(options, 'parseMany');
  const iterator = isAsync ? sources[Symbol.asyncIterator]() : sources[Symbol.iterator]();
  let done = false;
  let pendingError = null;

  // One batch from the input: full, or (from an async iterable) whatever is
  // there once a thread is free, so a slow input is not held back.
  const submit = async (window, stream) => {
    if (done) {
      if (pendingError) throw pendingError;
      return null;
    }
    const batch = [];
    let bytes = 0;
    while (batch.length < BATCH_MESSAGES && bytes < BATCH_BYTES) {
      let step;
      try {
        step = isAsync ? await iterator.next() : iterator.next();
        if (step.done) {
          done = true;
          break;
        }
        const source = checkedSource(step.value, 'parseMany');
        batch.push(source);
        bytes += typeof source === 'string' ? 0 : source.byteLength;
      } catch (error) {
        // Raised once the messages before it are out.
        pendingError = error;
        done = true;
        break;
      }
      if (isAsync && window.running < concurrency) break;
    }
    if (batch.length === 0) {
      if (pendingError) throw pendingError;
      return null;
    }
    return { batch: native.parseBatch(stream, batch, settings) };
  };
  // Closes the input when the caller stops early. Not awaited: an async
  // input still waiting in next() would hold the caller's break until it
  // yields again.
  const onClose = () => {
    if (!done && typeof iterator.return === 'function') {
      done = true;
      Promise.resolve(iterator.return()).catch(() => {});
    }
  };
  return windowed(submit, concurrency, false, onClose);
}

function messages(source, options) {
  const root = sourceOf(source);
  if (typeof root !== 'string')
    throw new TypeError(`tidewell.messages takes a path string or file: URL, not ${typeName(source)}`);
  const settings = settingsOf(options, 'messages');
  const concurrency = concurrencyOf(options, 'messages');
  const mbox = options?.mbox ?? false;
  if (typeof mbox !== 'boolean') throw new TypeError('tidewell.messages: mbox must be a boolean');
  const walk = native.openWalk(root, { ...settings, mbox });
  const submit = async (_, stream) => ({ batch: native.walkBatch(stream, walk, BATCH_MESSAGES, BATCH_BYTES, settings) });
  return windowed(submit, concurrency, true, null);
}

function listFiles(source) {
  const root = sourceOf(source);
  if (typeof root !== 'string')
    throw new TypeError(`tidewell.listFiles takes a path string or file: URL, not ${typeName(source)}`);
  return native.listFiles(root);
}

// The message as the command-line tool's JSON record (schema 1): the JSON
// key names, dates as their RFC 3339 text. JSON.stringify of it gives the
// same values as tidewell-import --json.
function toRecord(message) {
  if (message === null || typeof message !== 'object' || message.schema !== 1)
    throw new TypeError('tidewell.toRecord takes a message from tidewell');
  const mailboxes = (list) => list.map(({ name, address }) => ({ name, address }));
  const out = { schema: 1, path: message.path };
  if (message.pathBytes !== undefined) out.path_bytes = message.pathBytes;
  if (message.message !== undefined) out.message = message.message;
  out.imported = message.imported;
  if (message.error !== undefined) out.error = message.error;
  Object.assign(out, {
    subject: message.subject,
    from: mailboxes(message.from),
    sender: mailboxes(message.sender),
    reply_to: mailboxes(message.replyTo),
    to: mailboxes(message.to),
    cc: mailboxes(message.cc),
    bcc: mailboxes(message.bcc),
    date: message.date ? message.date.text : null,
    received: message.received ? message.received.text : null,
    message_id: message.messageId,
    in_reply_to: message.inReplyTo,
    references: [...message.references],
    text: message.text,
    attachments: message.attachments.map((a) => ({
      file_name: a.fileName,
      media_type: a.mediaType,
      size: a.size,
      content_id: a.contentId,
      disposition: a.disposition,
    })),
  });
  if (message.problems !== undefined)
    out.problems = message.problems.map(({ code, offset, text, context }) => ({ code, offset, text, context }));
  if (message.cut) out.cut = true;
  return out;
}

module.exports = { parse, parseSync, parseMany, messages, listFiles, toRecord };
