import { browserTests } from "./lib/suite.mjs";

browserTests("firefox");
