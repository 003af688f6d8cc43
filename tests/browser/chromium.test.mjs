import { browserTests } from "./lib/suite.mjs";

browserTests("chromium");
