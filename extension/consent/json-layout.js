/** A JSON text laid out for people: nothing is rewritten, only blanks between the tokens change. */

const TOKEN = /\s*("(?:[^"\\]|\\.)*"|[{}[\],:]|[^\s{}[\],:"]+)\s*/gy;

// What people read; and what a layout may cost for a text that is made to cost much.
const MAX_CHARACTERS = 1024 * 1024;
const MAX_INDENT = 40;
const MAX_DEPTH = 1_000;

/**
 * {text, ranges} of the layout, where `ranges` ({start, end, className}) names the members that stand twice in one object,
 * and `duplicates` counts them. null for a text that is no JSON object or array, or too long or deep.
 */
export function layOut(json) {
  if (json.length > MAX_CHARACTERS || !/^\s*[{[]/.test(json) || !isJson(json)) return null;
  const writer = new Writer();
  for (const [, token] of json.matchAll(TOKEN)) {
    if (writer.depth > MAX_DEPTH) return null;
    writer.add(token);
  }
  return writer.layout;
}

function isJson(text) {
  try {
    JSON.parse(text);
    return true;
  } catch {
    return false;
  }
}

class Writer {
  layout = { text: "", ranges: [], duplicates: 0 };
  // One for each object or array around: the members of an object so far (name to range), null for an array.
  #around = [];
  #last = "";

  get depth() {
    return this.#around.length;
  }

  add(token) {
    if ("}]".includes(token)) this.#close(token);
    else if (token === ",") this.#put(",");
    else if (token === ":") this.#put(": ");
    else this.#value(token);
    this.#last = token;
  }

  #value(token) {
    if (this.#last && this.#last !== ":") this.#newLine();
    const members = this.#around.at(-1);
    const isName = members && this.#last !== ":";
    const start = this.layout.text.length;
    this.#put(token);
    if (isName) this.#noteMember(members, token, { start, end: start + token.length, className: "twice" });
    if (token === "{") this.#around.push(new Map());
    if (token === "[") this.#around.push(null);
  }

  // By what the name means: an escape makes no other name of it.
  #noteMember(members, token, range) {
    const name = JSON.parse(token);
    const first = members.get(name);
    if (!first) return void members.set(name, { range, isTwice: false });
    if (!first.isTwice) this.layout.ranges.push(first.range);
    first.isTwice = true;
    this.layout.ranges.push(range);
    this.layout.duplicates++;
  }

  #close(token) {
    this.#around.pop();
    if (!"{[".includes(this.#last)) this.#newLine();
    this.#put(token);
  }

  #newLine() {
    this.#put(`\n${"  ".repeat(Math.min(this.#around.length, MAX_INDENT))}`);
  }

  #put(text) {
    this.layout.text += text;
  }
}
