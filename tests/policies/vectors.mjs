// The cases of administrators' policies that the extension and the doctor are held against. One of vectors.json that names no
// problem has none, and one that names no minutes sets none; each entry of malformed-entries.json cannot be understood, and
// denies every site when it is to deny one.

import { readFileSync } from "node:fs";

const read = (name) => JSON.parse(readFileSync(new URL(name, import.meta.url), "utf8"));

export const vectors = [
  ...read("vectors.json").map((each) => ({ problems: [], minutes: {}, ...each })),
  ...Object.entries(read("malformed-entries.json")).map(([what, entry]) => ({
    what, policy: { deniedOrigins: [entry] }, problems: [{ key: "deniedOrigins", entry }], minutes: {},
    decisions: { "https://a.example.org": "denied", "http://localhost": "denied" },
  })),
];
