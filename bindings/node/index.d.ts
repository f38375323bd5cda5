// SPDX-License-Identifier: MIT
// Type declarations for tidewell: the functions of index.js and the message
// they give, the command-line tool's JSON record (schema 1) with camelCase
// keys. A field the message lacks is null, a list without elements is [].

/// <reference types="node" />

/** A mailbox: the decoded display name and the address; "" for a part the message does not give. */
export interface Mailbox {
  name: string;
  address: string;
}

/** A date as the message gave it. */
export interface MessageDate {
  /** The instant. */
  value: Date;
  /** The sender's offset from UTC in minutes ("+0200" is 120). */
  offset: number;
  /** RFC 3339 in the sender's zone, as in the JSON record: "2025-10-07T03:30:00+02:00". */
  text: string;
}

/** A part that names a file. */
export interface Attachment {
  fileName: string;
  /** "type/subtype", lower case. */
  mediaType: string;
  /** Bytes, once the transfer encoding is undone. */
  size: number;
  /** Without angle brackets; "" for none. */
  contentId: string;
  /** Lower case: "attachment", "inline", ... */
  disposition: string;
}

/** Something the parsers repaired or tolerated (only with problems: true). */
export interface Problem {
  /** A stable name for the kind of repair. */
  code: string;
  /** The byte offset of the header field or body part it was found in. */
  offset: number;
  /** A fixed English description. */
  text: string;
  /** The text it was found in. */
  context: string;
}

/** One message: tidewell-import --json's record, keys in camelCase. */
export interface Message {
  schema: 1;
  /** The path it was read from; null for bytes. */
  path: string | null;
  /** Only for a path that is not UTF-8: its bytes, %HH-escaped. */
  pathBytes?: string;
  /** The message's number in an mbox, from 1; only from messages(path, {mbox: true}). */
  message?: number;
  /** false when the source could not be read (error says why). */
  imported: boolean;
  error?: string;
  subject: string | null;
  from: Mailbox[];
  sender: Mailbox[];
  replyTo: Mailbox[];
  to: Mailbox[];
  cc: Mailbox[];
  bcc: Mailbox[];
  date: MessageDate | null;
  /** The first Received field with a readable date. */
  received: MessageDate | null;
  /** Without angle brackets. */
  messageId: string | null;
  /** The first identifier of In-Reply-To. */
  inReplyTo: string | null;
  references: string[];
  /** The readable text: plain text, or the text of HTML where there is no plain text. */
  text: string | null;
  attachments: Attachment[];
  /** Only with problems: true. */
  problems?: Problem[];
  /** true only when only the first maxBytes were read. */
  cut?: true;
}

export interface ParseOptions {
  /** "full" (the default) or "desktop", the desktop-search host's reading. */
  reading?: 'full' | 'desktop';
  /** List what the parsers repaired in Message.problems. */
  problems?: boolean;
  /** Read only the first maxBytes of each message (Message.cut tells). */
  maxBytes?: number | null;
}

export interface ManyOptions extends ParseOptions {
  /** Batches parsed at once, each on a thread of the stream's own; default: the processors. */
  concurrency?: number;
}

export interface WalkOptions extends ManyOptions {
  /** Read every file as an mbox and give each of its messages. */
  mbox?: boolean;
}

/** Bytes of a message, or the path (or file: URL) of a file holding one. */
export type Source = Uint8Array | ArrayBuffer | string | URL;

/** The JSON record of tidewell-import --json (snake_case keys, dates as RFC 3339 text). */
export type JsonRecord = Record<string, unknown>;

/** Parses one message on libuv's pool. Rejects only for a path that cannot be read (a system error with code, errno, syscall and path). */
export function parse(source: Source, options?: ParseOptions): Promise<Message>;
/** parse on the calling thread; throws where parse rejects. */
export function parseSync(source: Source, options?: ParseOptions): Message;
/** Every source of an iterable or async iterable, in input order; unreadable paths give imported: false. */
export function parseMany(
  sources: Iterable<Source> | AsyncIterable<Source>,
  options?: ManyOptions,
): AsyncIterableIterator<Message>;
/** The messages of a file, folder or Maildir, walked as tidewell-import walks it. */
export function messages(path: string | URL, options?: WalkOptions): AsyncIterableIterator<Message>;
/** The files messages(path) reads, in its order. */
export function listFiles(path: string | URL): string[];
/** The message as tidewell-import --json's record. */
export function toRecord(message: Message): JsonRecord;
