import { attackTests } from "./lib/suite.mjs";

attackTests("firefox");
