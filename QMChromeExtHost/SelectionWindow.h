#pragma once

// What the selection flow does to the window.

/// How long the wait for the user sleeps between two looks, and how long a fresh window gets to be drawn.
inline constexpr unsigned long kPauseMilliseconds = 250;

void YieldPauseYield();

/// Gives the window its size and its place. Hidden at start-up before the window manager had placed it, it
/// may have come back in a corner, and wx may take it to be one pixel high.
void PlaceWindow();

/// A window manager that was only then done with the hiding at start-up has withdrawn the window again, and
/// forgotten that it stays on top: undoes that.
void BringWindowBack();

/// Shows "Loading..." in the window's list, before the token may keep the window from being drawn for long.
void ShowLoadingRow();
