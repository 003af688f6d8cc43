// How a demo tells what it does, and how it ends.

export function step(text) {
  console.log(`* ${text}`);
}

/** Runs the demo. A failure is one line and the exit status 1; what was started is ended in any case. */
export async function runDemo(main, cleanup) {
  try {
    await main();
  } catch (error) {
    console.error(`The demo failed: ${error.message.split("\n")[0]}`);
    process.exitCode = 1;
  } finally {
    await cleanup.run();
  }
}
