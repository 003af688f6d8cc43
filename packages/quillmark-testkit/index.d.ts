import type { Browser, Page } from "puppeteer-core";

/** A certificate on the kit's token, with a key of its own. What is left out has a default. */
export interface CertificateOrder {
  /** The owner's name: at most 64 characters, like the organisation's. */
  cn?: string;
  /** null for a certificate without one. */
  email?: string | null;
  organisation?: string;
  /** When the certificate is valid. Without `to`, the certificates' rows in the window are in the order in which you give them. */
  from?: Date | string | number;
  to?: Date | string | number;
}

export interface KitOptions {
  browser?: "chromium" | "firefox";
  /** What is on the token; one certificate when left out. */
  certificates?: CertificateOrder[];
  /** The token's PIN; "1234" when left out. */
  pin?: string;
  /** A display that is there, such as ":0". The kit brings one of its own when left out. */
  display?: string;
  /** false: the kit starts no browser, and your own puppeteer or Playwright starts Chromium with `launchOptions`. */
  launch?: boolean;
  /** What is tested, when it is not the Debian package that is installed here. For Quillmark's own tests. */
  product?: object;
}

/** What the user answers. What is left out has the default that is named first. */
export interface Answers {
  /** May this site ask? */
  consent?: "once" | "page" | "always" | "deny";
  /** In the window that shows documents; "deny" where consent is denied. */
  documents?: "sign" | "deny";
  /** The row of a certificate, from 0: those that are valid now come first, the one that ends last on top. */
  certificate?: number | "cancel";
  /** What is typed; the token's own PIN when left out. */
  pin?: string | "cancel";
}

/** A window that the user has answered. */
export interface Asked {
  window: "consent" | "documents" | "certificate" | "pin";
  /** In the extension's windows: the site, and the operation of the page library. */
  origin?: string;
  operation?: string;
}

/**
 * - "wrong-pin": the next PIN that is typed is wrong. The page hears LOGIN_FAILED.
 * - "no-token": no token is plugged in. TOKEN_MISSING.
 * - "pulled": the token is pulled when the user has chosen a certificate and is asked for the PIN. LOGIN_FAILED, for the signing
 *   program tells no more than that it could not log in; TOKEN_MISSING from the next request on.
 * - "slow": the signing program answers late, where a PIN is asked for: 5 seconds, or `milliseconds`.
 * - "expired": another token is plugged in, whose only certificate has expired. The page gets signatures; your server refuses them.
 */
export type Fault = "wrong-pin" | "no-token" | "pulled" | "slow" | "expired";

export interface Kit {
  /** Puppeteer's; undefined with `launch: false`. */
  readonly browser?: Browser;
  /** With `launch: false`: for puppeteer.launch(options), or Playwright's chromium.launchPersistentContext(userDataDir, options). */
  readonly launchOptions?: {
    executablePath: string; userDataDir: string; headless: false; args: string[]; ignoreDefaultArgs: string[];
    env: Record<string, string>; viewport: null; defaultViewport: null;
  };
  /** The display on which all of it appears, such as ":99". */
  readonly display: string;
  /** The root that has issued the certificates, as PEM, for the server that verifies. */
  readonly authority: string;
  /** The certificates as PEM, in your order. */
  readonly certificates: string[];
  /** The windows that were answered so far, in their order. */
  readonly asked: Asked[];

  /** Opens an address in a new tab. */
  page(url: string): Promise<Page>;
  /** Serves pages (HTML by path) beside the page library, "/quillmark.js", until the kit stops. Gives the origin. */
  serve(pages?: Record<string, string>): Promise<string>;
  /** From now on the user answers each window like this. Before the first call nobody does. */
  whenAsked(answers?: Answers): Promise<void>;
  /**
   * Brings a fault about, in place of the one before, between two requests: it ends the signing program, and the next request
   * starts it anew.
   */
  fault(name: Fault, options?: { milliseconds?: number }): Promise<void>;
  /** Ends the fault, if there is one. */
  mend(): Promise<void>;
  /** Ends everything and removes it. So do the end of the process, SIGINT, SIGTERM and SIGHUP. */
  stop(): Promise<void>;
}

/**
 * Starts a browser with Quillmark's extension, the signing program and a token. Rejects with one Error that says what is missing
 * on this computer and how to install it, or with a TypeError for options that no kit can have.
 */
export function startKit(options?: KitOptions): Promise<Kit>;
