/** Decompression that can be stopped when there is too much of it, and compression. */
export { Unzlib, zlibSync } from "fflate";
