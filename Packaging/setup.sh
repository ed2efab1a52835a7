# Sourced by ./run, ./test and ./bench: makes sure that the Debian packages they need are there.
# Installs what is missing as root or through sudo; otherwise prints the one line to run and stops.

buildPackages=(
  clang-19 lld-19 cmake ninja-build pkg-config
  libfmt-dev nlohmann-json3-dev libsimdjson-dev libutf8proc-dev libssl-dev
  qt6-base-dev qt6-declarative-dev libxcb1-dev libxcb-shape0-dev libxcb-xinput-dev
)
# What the windows load when they run.
runPackages=(
  qml6-module-qtquick qml6-module-qtquick-window qml6-module-qtqml-workerscript fonts-dejavu-core
)
# The linter of views, and the types that it reads beside those of `runPackages`.
lintPackages=("${runPackages[@]}" qt6-declarative-dev-tools qml6-module-qtqml)
testPackages=(git libclang-rt-19-dev clang-format-19 libgtest-dev libvterm-dev libbenchmark-dev procps tmux)
desktopTestPackages=("${runPackages[@]}" xvfb openbox xdotool x11-utils dbus-daemon)
benchPackages=(libbenchmark-dev procps)

say() { printf '== %s\n' "$*" >&2; }

# needPackages NAME...: returns once all of them are installed, and fails where that can't be.
needPackages() {
  local missing=() name
  local installed
  installed=$(dpkg-query -W -f '${db:Status-Status} ${Package}\n' "$@" 2>/dev/null || true)
  for name in "$@"; do
    grep -qx "installed $name" <<<"$installed" || missing+=("$name")
  done
  if [ ${#missing[@]} -eq 0 ]; then return 0; fi
  if ! command -v apt-get >/dev/null; then
    say "These Debian packages (or their like) are needed: ${missing[*]}"
    exit 1
  fi
  local root=()
  if [ "$(id -u)" -ne 0 ]; then
    if command -v sudo >/dev/null && { sudo -n true 2>/dev/null || [ -t 0 ]; }; then
      root=(sudo)
    else
      say "Some packages are missing. Run this once, then try again:"
      printf 'sudo apt-get update && sudo apt-get install -y --no-install-recommends %s\n' "${missing[*]}" >&2
      exit 1
    fi
  fi
  say "Installing ${missing[*]}"
  local log
  log=$(mktemp)
  if ! { "${root[@]}" apt-get update &&
    "${root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends "${missing[@]}"; } \
    >"$log" 2>&1 </dev/null; then
    tail -n 20 "$log" >&2
    rm -f "$log"
    say "The packages could not be installed."
    return 1
  fi
  rm -f "$log"
}

# buildPreset PRESET [TARGET...]: configures when there is need to, and builds. Quiet unless it fails.
buildPreset() {
  local preset=$1 log
  shift
  log=build/$preset.log
  mkdir -p build
  if [ ! -f "build/$preset/build.ninja" ] || [ CMakePresets.json -nt "build/$preset/.configured" ]; then
    say "Configuring $preset"
    if ! cmake --preset "$preset" >"$log" 2>&1; then
      cat "$log" >&2
      return 1
    fi
    touch "build/$preset/.configured"
  fi
  local targets=()
  if [ $# -gt 0 ]; then targets=(--target "$@"); fi
  if ! ninja -C "build/$preset" -n "$@" 2>/dev/null | grep -q 'no work to do'; then say "Building $preset"; fi
  if ! cmake --build "build/$preset" "${targets[@]}" >"$log" 2>&1; then
    grep -vE '^\[[0-9]+/[0-9]+\] (Building|Linking)' "$log" >&2 || true
    return 1
  fi
}
