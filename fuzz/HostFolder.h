#pragma once

/// Moves the process into a new folder, removed at its end, whose log and debug copies lead nowhere: the host
/// writes them into its working directory, and everything is logged (at DEBUG). To be called for each input;
/// only the first call does it. Later files of the corpus are found only when it was named by an absolute
/// path, as tools/fuzz does.
void EnterHostFolder();
