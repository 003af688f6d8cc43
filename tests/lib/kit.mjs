// The harness for tests of the whole program, layer by layer. What needs a browser is in browser/, for it takes longer to load;
// what a file of tests usually wants of all this is a World.

// What all need: running and waiting, and undoing it with one call.
export * from "./cleanup.mjs";
export * from "./process.mjs";

// display: screens without a screen, with their windows.
export * from "./display/desktop.mjs";
export * from "./display/wayland-desktop.mjs";

// program: the host as a browser starts it.
export * from "./program/frames.mjs";
export * from "./program/host.mjs";
export * from "./program/texts.mjs";

// token: what is plugged in, and the certificates on it.
export * from "./token/certificates.mjs";
export * from "./token/fake-token.mjs";
export * from "./token/odd-certificates.mjs";
export * from "./token/soft-token.mjs";

// user: who answers the windows.
export * from "./user/answers.mjs";
export * from "./user/ears.mjs";
export * from "./user/screen-reader.mjs";
export * from "./user/user.mjs";

// judges: who says whether a signature is good.
export * from "./judges/asn1.mjs";
export * from "./judges/judges.mjs";
export * from "./judges/pdf.mjs";

export * from "./world.mjs";
