// Undoing what was started.

import { rmSync } from "node:fs";
import { mkdtemp, rm } from "node:fs/promises";
import { tmpdir } from "node:os";
import { join } from "node:path";

/** What has to be undone, last first. Undoing goes on after a failure and reports the first one. */
export class Cleanup {
  #undo = [];
  #folders = [];

  add(undo) {
    this.#undo.push(undo);
  }

  /** A new empty folder that goes with the rest. */
  async folder(name) {
    const path = await mkdtemp(join(tmpdir(), `quillmark-${name}-`));
    this.#folders.push(path);
    this.add(() => rm(path, { recursive: true, force: true }));
    return path;
  }

  /** Ends a child process of ours, if it still runs, and waits until it is gone. */
  addChild(child) {
    const gone = new Promise((resolve) => child.once("close", resolve));
    this.add(async () => {
      if (child.exitCode === null && child.signalCode === null) child.kill("SIGKILL");
      await gone;
    });
  }

  /** Removes the folders at once, as far as nobody goes on writing there: for a process that exits, and its children with it. */
  removeFolders() {
    for (const path of this.#folders) {
      try {
        rmSync(path, { recursive: true, force: true, maxRetries: 10 });
      } catch {
        // There is no time left to wait.
      }
    }
  }

  async run() {
    let failure;
    while (this.#undo.length > 0) {
      try {
        await this.#undo.pop()();
      } catch (error) {
        failure ??= error;
      }
    }
    if (failure) throw failure;
  }
}
