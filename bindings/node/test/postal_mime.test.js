// SPDX-License-Identifier: MIT
// tidewell against postal-mime over the shared corpus: the subject, the name
// and address of every mailbox of From, To, Cc and Bcc, the Date (as an
// instant), the attachment names and the text. Where the two differ, a rule
// below must accept the difference and say why; each rule is a predicate over
// the two values and the message's raw header, not a list of files, so a
// change to either parser moves messages between rules (or makes them agree)
// without editing this file. The test prints how many differences each rule
// took and fails on any difference no rule takes. Our side is the addon's
// record (the command's JSON record, camelCase keys).
//
//     node --test test/postal_mime.test.js
//     node test/postal_mime.test.js --list    (every difference, by rule)
'use strict';

const test = require('node:test');
const assert = require('node:assert');
const fs = require('node:fs');
const {tidewell, corpus} = require('./helper.js');

let PostalMime = null;
try {
  PostalMime = require('postal-mime');
} catch {
  // a dev dependency: without it the test is skipped
}

const squeeze = (s) => (typeof s === 'string' ? s.normalize('NFC').split(/\s+/u).filter(Boolean).join(' ') : s);
const empty = (v) => v == null || v === '' || (Array.isArray(v) && v.length === 0);
const replaced = (v) => /\ufffd/u.test(JSON.stringify(v) ?? '');

function words(text) {
  const counts = new Map();
  for (const w of (text ?? '').normalize('NFC').toLowerCase().match(/[\p{L}\p{N}_]+/gu) ?? [])
    counts.set(w, (counts.get(w) ?? 0) + 1);
  return counts;
}

// Of the words of `a`, the share that `b` has too (counted with repeats); both ways for `similar`.
function covered(a, b) {
  const [wa, wb] = [ words(a), words(b) ];
  let total = 0, shared = 0;
  for (const [w, n] of wa)
    total += n, shared += Math.min(n, wb.get(w) ?? 0);
  return total === 0 ? 1 : shared / total;
}
const similar = (a, b) => Math.min(covered(a, b), covered(b, a)) >= 0.9;

// HTML to its words, enough to compare words: postal-mime gives only the markup when a message has no plain
// text. Accented letters written as entities become the letter and its combining mark, which NFC joins.
const MARKS = {
  grave : '\u0300',
  acute : '\u0301',
  circ : '\u0302',
  tilde : '\u0303',
  uml : '\u0308',
  ring : '\u030a',
  cedil : '\u0327'
};
const strip = (html) =>
    html.replace(/<(style|script|head|title)\b[\s\S]*?<\/\1\s*>/giu, ' ')
        .replace(/<[^>]*>/gu, ' ')
        .replace(/&([a-z])(grave|acute|circ|tilde|uml|ring|cedil);/giu, (_, c, m) => c + MARKS[m.toLowerCase()])
        .replace(/&szlig;/gu, '\u00df')
        .replace(/&#(\d+);/gu, (_, n) => String.fromCodePoint(Number(n) % 0x110000))
        .replace(/&\w+;/gu, ' ');

function mailboxes(value) {
  const list = value == null ? [] : Array.isArray(value) ? value : [ value ];
  return list.flatMap((a) => (a.group ? a.group : [ a ]))
      .map((a) => ({name : a.name ?? '', address : a.address ?? ''}));
}

function theirFields(m) {
  const text = m.text ?? (m.html == null ? null : strip(m.html));
  return {
    subject : m.subject ?? null,
    from : mailboxes(m.from),
    to : mailboxes(m.to),
    cc : mailboxes(m.cc),
    bcc : mailboxes(m.bcc),
    date : m.date ?? null,
    attachments : m.attachments.map((a) => squeeze(a.filename)).filter(Boolean),
    text,
    html : m.text == null && m.html != null,
  };
}

function ourFields(r) {
  const date = r.date == null ? null : r.date.value ?? r.date;
  return {
    subject : r.subject,
    from : r.from,
    to : r.to,
    cc : r.cc,
    bcc : r.bcc,
    date,
    attachments : r.attachments.map((a) => squeeze(a.fileName)).filter(Boolean),
    text : r.text,
  };
}

const instant = (d) => (d == null ? null : d instanceof Date ? d.getTime() : Date.parse(d));
const key = (a) => `${squeeze(a.name)}\u0000${a.address.toLowerCase()}`;
const keys = (list) => list.map(key).join('\u0001');

function same(field, ours, theirs) {
  switch (field) {
  case 'subject':
    return squeeze(ours) === squeeze(theirs) || (empty(ours) && empty(theirs));
  case 'date':
    return instant(ours) === instant(theirs);
  case 'text':
    return empty(squeeze(ours)) ? empty(squeeze(theirs)) : !empty(theirs) && similar(ours, theirs);
  case 'attachments':
    return JSON.stringify([...ours ].sort()) === JSON.stringify([...theirs ].sort());
  default:
    return keys(ours) === keys(theirs);
  }
}

// What the rules may look at besides the two values: the raw header fields, unfolded, as Latin-1, and
// every media type and boundary written anywhere in the message.
class Context {
  constructor(data) {
    this.text = data.toString('latin1');
    const ends = [ this.text.indexOf('\n\n'), this.text.indexOf('\r\n\r\n') ].filter((i) => i >= 0);
    this.fields = new Map();
    this.spaced = new Set(); // names written with white space before the colon
    for (const line of this.text.slice(0, ends.length ? Math.min(...ends) : undefined)
             .replace(/\r?\n[ \t]/gu, ' ')
             .split(/\r?\n/u)) {
      const [, name, space, value] = /^([^:]*?)([ \t]*):(.*)$/su.exec(line) ?? [];
      if (!name?.trim())
        continue;
      const key = name.trim().toLowerCase();
      if (space)
        this.spaced.add(key);
      this.fields.set(key, [...this.raw(key), value ]);
    }
    this.types = [...this.text.matchAll(/^content-type:[ \t]*([^;\r\n]*)/gimu) ].map((m) => m[1].trim().toLowerCase());
    this.boundaries = [...this.text.matchAll(/boundary\s*=\s*"?([^";\r\n]+)/giu) ].map((m) => m[1]);
    this.loneCr = (this.text.match(/\r(?!\n)/gu) ?? []).length > 2;
  }
  raw(field) { return this.fields.get(field) ?? []; }
}
const ANY = [ 'subject', 'from', 'to', 'cc', 'bcc', 'date', 'attachments', 'text' ];
const ADDRESSES = [ 'from', 'to', 'cc', 'bcc' ];

const contained = (small, large) => covered(small, large) >= 0.9;
const within = (a, b) => a.every((x) => a.filter((y) => y === x).length <= b.filter((y) => y === x).length);
const bare = (name) => name.replace(/["'\s]/gu, '').toLowerCase();
const pairs = (o, t) =>
    o.length === t.length && o.every((a, i) => a.address.toLowerCase() === t[i].address.toLowerCase());
// postal-mime's text of an enclosed message: a block of its From, Subject, Date, To and Cc between dashed lines.
const unframed = (text) => text.replace(/^-+\n(?:(?:From|Subject|Date|To|Cc|Bcc): .*\n(?: {5,}.*\n)*)+-+$/gmu, ' ');
const texts = (f, o, t) => typeof o === 'string' && typeof t === 'string';

// [name, fields, reason, predicate(field, ours, theirs, context)]. The first rule that takes a difference has it.
const RULES = [
  [
    'postal-mime threw', ANY,
    'postal-mime rejected the message (a header block over its size limit, nesting over its depth limit); ' +
        'the full reading reads what it can',
    (f, o, t) => t instanceof Error
  ],
  [
    'lone CR line ends', ANY,
    'The message ends its lines with a lone CR: postal-mime takes only LF for a line end, so the header ' +
        'block is one long line to it; the full reading takes CR too (we are right)',
    (f, o, t, c) => c.loneCr
  ],
  [
    'white space before the colon', [ 'subject', 'date', ...ADDRESSES ],
    'A field written with white space before its colon ("Subject :"), which both read: what still differs ' +
        'is what such messages hold besides (a second From, which postal-mime drops and the full reading ' +
        'lists; a date neither reads, which postal-mime passes on as written)',
    (f, o, t, c) => c.spaced.has(f)
  ],
  [
    'indented first line', ANY,
    'The message\'s first line is indented: the full reading takes it for the rest of a field that is not ' +
        'there and skips it, postal-mime reads it as a field; either is a fair reading',
    (f, o, t, c) => /^[ \t]+\S/u.test(c.text)
  ],
  [
    'field given twice', [ 'subject', 'date', ...ADDRESSES, 'text', 'attachments' ],
    'The field (for the text and the names: Content-Type) is there more than once, by mistake or to fool ' +
        'filters: postal-mime takes the first Subject, Date, From and Content-Type, the full reading the last ' +
        'one (every From); neither is wrong',
    (f, o, t, c) => c.raw(ANY.indexOf(f) > 5 ? 'content-type' : f).length > 1
  ],
  [
    'one mailbox of From', [ 'from' ],
    'postal-mime\'s from is one mailbox, the first; the full reading lists every mailbox of From',
    (f, o, t) => t.length === 1 && o.length > 1 && key(o[0]) === key(t[0])
  ],
  [
    'mailbox listed once', ADDRESSES,
    'A mailbox repeated in one field is listed once by the full reading (as documented), every time by ' +
        'postal-mime',
    (f, o, t) => keys(o) === keys(t.filter((a, i) => t.findIndex((b) => key(b) === key(a)) === i))
  ],
  [
    'encoded word with a language', [ 'subject', ...ADDRESSES, 'attachments' ],
    'An encoded word that names a language after its charset (=?utf-8*sl?Q?...?=, allowed since RFC 2231): ' +
        'postal-mime decodes it, the full reading leaves it as written (our fault)',
    (f, o, t, c) => /=\?[\w-]+\*[\w-]+\?[bq]\?/iu.test(c.text)
  ],
  [
    '8-bit header', [ 'subject', ...ADDRESSES, 'attachments' ],
    'Raw 8-bit bytes in the field, or inside an encoded word: postal-mime decodes them as UTF-8 (U+FFFD for ' +
        'anything else; inside an encoded word, UTF-8 read as the declared charset); the full reading checks ' +
        'for UTF-8 and otherwise detects the charset (we are right)',
    (f, o, t, c) =>
        replaced(t) || /\u00ef\u00bf\u00bd/u.test(JSON.stringify(t)) || c.raw(f).some((v) => /[\x80-\xff]/u.test(v))
  ],
  [
    'UTF-7', [ 'subject', ...ADDRESSES, 'text' ],
    'Text in UTF-7 (an encoded word or a body): postal-mime has no decoder for it and leaves the text as ' +
        'written; the full reading decodes it (we are right)',
    (f, o, t, c) => (f === 'text' ? [ c.text ] : c.raw(f)).some((v) => /=\?utf-7\?|charset="?utf-7/iu.test(v))
  ],
  [
    'control characters', [ 'subject' ],
    'A control character in the field (a NUL at the end of an encoded word): the full reading drops it',
    (f, o, t) => typeof t === 'string' && t.replace(/[\x00-\x1f]/gu, '') === o
  ],
  [
    'quotes in a name', ADDRESSES,
    'The same mailboxes with names that differ in quotes and spacing only: postal-mime keeps the single ' +
        'quotes Outlook writes inside a quoted name ("\'Joe\'") and the quotes inside a comment used as the ' +
        'name, and drops the space at the edge of a quoted word (First" M. "Last); the full reading strips ' +
        'the quotes and keeps the spacing (we are right)',
    (f, o, t) => pairs(o, t) && o.every((a, i) => bare(a.name) === bare(t[i].name))
  ],
  [
    'name that repeats the address', ADDRESSES,
    'A display name that is only the address again ("a@b" <a@b>): the full reading drops it, postal-mime ' +
        'keeps it; where the copy is an encoded word, postal-mime (which decodes before it parses) drops it ' +
        'and the full reading keeps it (a small inconsistency of ours)',
    (f, o, t) => pairs(o, t) && o.every((a, i) => bare(a.name) === bare(t[i].name) ||
                                                  [ a.name, t[i].name ].some((n) => !n) &&
                                                      [ a.name, t[i].name ].some((n) => bare(n) === bare(a.address)))
  ],
  [
    'mailbox without a domain', ADDRESSES,
    'A mailbox with no domain: "<>", the comment after an empty group, a local name ("nsb"), a bare ' +
        'name, a VMS or UUCP route. postal-mime makes the text a name with an empty address (or the address), ' +
        'the full reading keeps a local address as written and lists nothing for "<>" and empty groups',
    (f, o, t) => [...o, ...t].some((a) => !a.address.includes('@'))
  ],
  [
    'obsolete address syntax', ADDRESSES,
    'Comments inside an address, source routes, white space around its dots (pete(his account)@silly.test, ' +
        '<@route:mary@x>, jdoe@test . example): the full reading drops the comments and the white space as ' +
        'the syntax says; postal-mime keeps comments in the address and cuts it at the space (we are right, ' +
        'but keep the backslash of a quoted pair in a comment taken into a name)',
    (f, o, t, c) => c.raw(f).some((v) => /\(|<@|\s\.|\.\s/u.test(v))
  ],
  [
    'mailboxes without a comma', ADDRESSES,
    'Two addresses in one item without a comma between them: one mailbox to both; the full reading takes ' +
        'the last address and postal-mime the first',
    (f, o, t, c) => o.length === t.length && c.raw(f).some((v) => (v.match(/@/gu) ?? []).length > o.length)
  ],
  [
    'words after the address', ADDRESSES,
    'Words after a bracketed address (the rest of a broken folded field): postal-mime makes them the ' +
        'name, the full reading ignores them',
    (f, o, t, c) => pairs(o, t) && c.raw(f).some((v) => />\s*[^\s,]/u.test(v))
  ],
  [
    'specials in an encoded word', ADDRESSES,
    'An encoded word in a name holds ":" or ")" as they are, which such a word may not: the full reading ' +
        'takes the ":" for the end of a group\'s name, postal-mime cuts the word at the ")"; both lose the name',
    (f, o, t, c) => c.raw(f).some((v) => /=\?[^?]*\?q\?[^?]*[:()][^?]*\?=/iu.test(v))
  ],
  [
    'date V8 cannot read', [ 'date' ],
    'postal-mime gives the text of the field where V8\'s Date cannot read it (a zone name such as JST, a ' +
        'military zone letter, seconds missing, words); the full reading reads what it can (an unknown zone ' +
        'name counts as +00:00, as RFC 5322 says) and gives no date otherwise',
    (f, o, t) => Number.isNaN(instant(t))
  ],
  [
    'fraction of a second', [ 'date' ],
    'The time has a fraction of a second: V8 keeps it, the full reading gives whole seconds',
    (f, o, t) => Math.abs(instant(o) - instant(t)) < 1000
  ],
  [
    'year V8 makes up', [ 'date' ],
    'The field has no year from 1900 on (year 0001, or none): V8 makes one up (2001), the full reading gives ' +
        'no date (we are right)',
    (f, o, t, c) => o == null && !c.raw('date').some((v) => /\b(19|20)\d\d\b/u.test(v))
  ],
  [
    'multipart/digest', [ 'text', 'attachments' ],
    'A multipart/digest, whose parts both read as enclosed messages: postal-mime puts each one\'s header ' +
        'lines into the text, the full reading gives their bodies only',
    (f, o, t, c) => c.types.includes('multipart/digest')
  ],
  [
    'encoded message', [ 'text', 'attachments' ],
    'The message\'s body is a message/rfc822 in base64 (which MIME does not allow but mailers write), ' +
        'which both decode: postal-mime puts the enclosed header lines into the text, the full reading ' +
        'gives the body only',
    (f, o, t, c) => c.raw('content-type').some((v) => /message\/rfc822/iu.test(v)) &&
                    c.raw('content-transfer-encoding').some((v) => /base64/iu.test(v))
  ],
  [
    'ambiguous boundaries', [ 'text', 'attachments' ],
    'A nested multipart reuses its parent\'s boundary, or one boundary begins with another: postal-mime ' +
        'matches the innermost, the full reading closes the outer part at the first delimiter it recognises, ' +
        'so later parts are lost to one side',
    (f, o, t, c) => c.boundaries.some((b, i) => c.boundaries.some((d, j) => i !== j && d.startsWith(b)))
  ],
  [
    'broken Content-Type parameters', [ 'text', 'attachments' ],
    'The boundary follows an empty parameter ("multipart/mixed;; boundary=") or is written in RFC 2231 form ' +
        '(boundary*=), which both read: what differs is which parts give text (postal-mime joins both parts ' +
        'of a signed message and leaves out an attached message\'s text)',
    (f, o, t, c) => c.raw('content-type').some((v) => /;\s*;|boundary\*/iu.test(v))
  ],
  [
    'root of multipart/related', [ 'text' ],
    'The first part of a multipart/related is not of the type its type parameter names (an image before ' +
        'the HTML): the full reading takes the first part for the root, as RFC 2387 says when there is no start ' +
        'parameter, and finds no text; postal-mime reads every part. The type parameter should pick the root ' +
        '(our fault)',
    (f, o, t, c) => empty(o) && c.raw('content-type').some((v) => /multipart\/related.*type="?text\//iu.test(v))
  ],
  [
    'HTML bogus comments', [ 'text' ],
    'HTML with markup browsers drop as bogus comments ("<? x >", "<!x>", "</ x>", "</>", as spam writes to ' +
        'split words): the full reading drops them as browsers do, and joins the word; postal-mime gives ' +
        'only the markup, and this test\'s reading of it puts a space for every tag',
    (f, o, t, c) => c.html && /<\?|<!(?!--|doctype|\[)|<\/[\s>]/iu.test(c.text)
  ],
  [
    'type without a subtype', [ 'text', 'attachments' ],
    'A Content-Type that is not type/subtype ("text", "text plain", "<html>", "x-sun-attachment"): MIME ' +
        'says to read it as text/plain, as the full reading does; postal-mime makes the part an attachment ' +
        '(we are right)',
    (f, o, t, c) => c.types.some((type) => !/^[\w.+-]+\/[\w.+-]+$/u.test(type))
  ],
  [
    'enclosed messages', [ 'text' ],
    'Enclosed messages: postal-mime writes a block of their From, Subject and Date into the text and skips ' +
        'the ones marked as attachments; the full reading gives the text of every enclosed message, with no ' +
        'header block',
    (f, o, t, c) => c.types.includes('message/rfc822') &&
                    (contained(o ?? '', unframed(t ?? '')) || contained(unframed(t ?? ''), o ?? ''))
  ],
  [
    'text labelled base64', [ 'text' ],
    'A body labelled base64 that is text, wholly or after the padding of a line (\'...Cg== ignored\'): ' +
        'the full reading passes such lines through as text (mailers append footers so), postal-mime ' +
        'decodes them into bytes that are no text (it is right to drop the words after the padding)',
    // A part labelled base64 whose first body line has words.
    (f, o, t, c) =>
        /^content-transfer-encoding:[ \t]*base64[ \t]*\r?\n(?:[^\r\n]+\r?\n)*\r?\n[^\r\n]*\S[ \t]+\S/imu.test(c.text)
  ],
  [
    'text of more parts', [ 'text' ],
    'postal-mime joins the text of every inline text part: every plain alternative of a ' +
        'multipart/alternative, every part of a related or signed one; the full reading picks one ' +
        'alternative, takes the root of a related one and joins the parts of a multipart/mixed. Our text is ' +
        'all in theirs',
    (f, o, t) => texts(f, o, t) && contained(o, t)
  ],
  [
    'text of named parts', [ 'text' ],
    'The full reading takes the text of inline text parts that postal-mime lists as attachments (no ' +
        'disposition but a name, a calendar); their text is all in ours',
    (f, o, t) => texts(f, o, t) && contained(t, o)
  ],
  [
    'charset of a body', [ 'text' ],
    'The same body read in another charset: postal-mime decodes in the declared one (U+FFFD for what does ' +
        'not fit, escapes of ISO-2022-JP left in, UTF-8 read as windows-1251 or Latin-1, Big5 as Latin-1), the ' +
        'full reading checks the declaration and detects (we are right, but for a Shift_JIS body labelled ' +
        'us-ascii with two stray bytes, which our detector takes for Greek)',
    (f, o, t) => texts(f, o, t) && (replaced(t) || /\x1b/u.test(t) || contained(t.replace(/[^\x00-\x7f]/gu, ' '), o) ||
                                    (/[\u0080-\u00ff]{2}/u.test(t) && /[\u0100-\uffff]/u.test(o)))
  ],
  [
    'names of text parts', [ 'attachments' ],
    'postal-mime lists no names for the parts it reads as text (inline text/plain and text/html) or as ' +
        'enclosed messages (inline message/rfc822); the full reading lists every part that names a file. Every ' +
        'name postal-mime gives is there',
    (f, o, t) => within(t, o)
  ],
];

async function compare(records) {
  const accepted = new Map(RULES.map(([ name ]) => [name, []]));
  const failures = [];
  let count = 0;
  for await (const record of records) {
    count++;
    const data = fs.readFileSync(record.path);
    let theirs;
    try {
      theirs = theirFields(await PostalMime.parse(data));
    } catch (error) {
      theirs = Object.fromEntries(ANY.map((f) => [f, error]));
    }
    const ours = ourFields(record), context = new Context(data);
    context.html = theirs.html; // postal-mime gave only HTML, so its text is our strip()'s
    for (const field of ANY) {
      if (!(theirs[field] instanceof Error) && same(field, ours[field], theirs[field]))
        continue;
      const rule = RULES.find(([, fields, , accepts ]) =>
                                  fields.includes(field) && accepts(field, ours[field], theirs[field], context));
      if (rule)
        accepted.get(rule[0]).push([ record.path, field ]);
      else
        failures.push([ record.path, field, ours[field], theirs[field] ]);
    }
  }
  return {count, accepted, failures};
}

const show = (v) => (JSON.stringify(v) ?? String(v)).slice(0, 200);

if (require.main === module && process.argv.includes('--list')) {
  compare(tidewell.messages(corpus)).then(({accepted, failures}) => {
    for (const [name, found] of accepted) {
      console.log(`== ${name}: ${found.length}`);
      for (const [file, field] of found)
        console.log(`   ${field.padEnd(12)} ${file}`);
    }
    for (const [file, field, ours, theirs] of failures) {
      console.log(
          `NOT ACCEPTED ${field.padEnd(12)} ${file}\n   tidewell    ${show(ours)}\n   postal-mime ${show(theirs)}`);
    }
  });
} else {
  const skip =
      !PostalMime ? 'postal-mime is not installed (npm install)' : !corpus && 'no shared corpus beside the checkout';
  test('tidewell against postal-mime over the shared corpus', {skip}, async () => {
    const {count, accepted, failures} = await compare(tidewell.messages(corpus));
    console.log(`${count} messages; accepted differences by rule:`);
    for (const [name, found] of accepted)
      console.log(`  ${String(found.length).padStart(5)}  ${name}`);
    for (const [file, field, ours, theirs] of failures.slice(0, 20)) {
      console.log(`NOT ACCEPTED ${file} ${field}: tidewell ${show(ours)} / postal-mime ${show(theirs)}`);
    }
    assert.ok(count > 1000, `only ${count} messages read`);
    // Agreement is the rule: the accepted differences stay a small share of all the fields compared.
    const differences = [...accepted.values() ].reduce((n, found) => n + found.length, 0);
    assert.ok(differences < (count * ANY.length) / 10, `${differences} accepted differences`);
    assert.deepStrictEqual(failures.length, 0, `${failures.length} differences no rule accepts`);
  });
}
