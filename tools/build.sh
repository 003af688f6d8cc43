# shellcheck shell=bash
# Building a preset, for scripts. To be sourced by bash in the project's root.

# build_preset <preset> [<target>...]: configures and builds it. Quiet but for how far it is, on a terminal; when it fails, says
# what the compiler said.
build_preset() {
  local log=build/$1.log targets=() first=''
  [[ $# -eq 1 ]] || targets=(--target "${@:2}")
  [[ -f build/$1/.ninja_log ]] || first=', which takes some minutes the first time'
  mkdir -p build
  echo "Building the preset $1$first"
  if ! { cmake --preset "$1" && cmake --build --preset "$1" "${targets[@]}"; } 2>&1 </dev/null | tee "$log" | show_progress; then
    grep -m 5 -A 3 -E 'error|Error' "$log" >&2 || tail -n 5 "$log" >&2
    echo "The build failed; all of it is in $log" >&2
    return 1
  fi
}

# Of ninja's words, how many steps are done, in one line on a terminal.
show_progress() {
  local line
  while IFS= read -r line; do
    [[ -t 1 && $line =~ ^\[([0-9]+)/([0-9]+)\] ]] || continue
    printf '\r%s of %s steps ' "${BASH_REMATCH[1]}" "${BASH_REMATCH[2]}"
  done
  [[ ! -t 1 ]] || printf '\r\e[K'
}
