# shellcheck shell=bash
# Building a preset, for scripts. To be sourced by bash in the project's root.

# build_preset <preset>: configures and builds it. Quiet; when it fails, says what the compiler said.
build_preset() {
  local log=build/$1.log
  mkdir -p build
  echo "Building the preset $1"
  if ! { cmake --preset "$1" && cmake --build --preset "$1"; } >"$log" 2>&1 </dev/null; then
    grep -m 5 -A 3 -E 'error|Error' "$log" >&2 || tail -n 5 "$log" >&2
    echo "The build failed; all of it is in $log" >&2
    return 1
  fi
}
