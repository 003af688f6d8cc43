// The harness for tests in a browser: kit.mjs, and a layer on top of it. What a file of tests usually wants of it is a Rig.

export * from "./kit.mjs";

// browser: a browser with the extension, sites, and the user in front of both.
export * from "./browser/attentive-user.mjs";
export * from "./browser/browser.mjs";
export * from "./browser/extension-pages.mjs";
export * from "./browser/page.mjs";
export * from "./browser/policies.mjs";
export * from "./browser/rig.mjs";
export * from "./browser/site.mjs";
export * from "./browser/user.mjs";
export * from "./browser/workplace.mjs";
