# What the scripts share: packages, the Python environment, building. Sourced, never run.
#
# A script that sources this works from any current folder, as a user, as root or under sudo, and does
# again only what is missing: nothing here reaches the network once packages and environment are there.

repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$repo"

system_python=/usr/bin/python3.11
venv=$repo/.venv
site_packages=$venv/lib/python3.11/site-packages

say() { printf '\033[1m== %s\033[0m\n' "$*"; }
die() {
  printf 'error: %s\n' "$*" >&2
  exit 1
}

# listed FILE: its entries, without comments and blank lines.
listed() { sed -e 's/#.*//' -e '/^[[:space:]]*$/d' "$1"; }

# ensure_packages FILE...: installs the listed Debian packages that are missing.
ensure_packages() {
  local missing=() package
  command -v dpkg-query >/dev/null || die "this is not a Debian system; install by hand what $* list, then set KVALO_SKIP_PACKAGES=1"
  for package in $(cat "$@" | listed /dev/stdin); do
    [[ $(dpkg-query -W -f '${db:Status-Status} ' "$package" 2>/dev/null) == *installed* ]] || missing+=("$package")
  done
  [[ ${#missing[@]} -gt 0 ]] || return 0

  local as_root=()
  if [[ $EUID -ne 0 ]]; then
    command -v sudo >/dev/null || die "these packages are missing and there is no sudo: ${missing[*]} (as root: apt-get install ${missing[*]})"
    as_root=(sudo)
  fi
  say "Installing packages: ${missing[*]}"
  local apt=("${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -q -y -o Dpkg::Use-Pty=0)
  "${apt[@]}" update || die "apt-get update failed; is there a network? Missing: ${missing[*]}"
  "${apt[@]}" install --no-install-recommends "${missing[@]}" ||
    die "apt-get install failed; install by hand: ${missing[*]}"
}

# leave_root SCRIPT ARGUMENT...: under sudo, hands what earlier runs left to the person who owns the tree
# and goes on as that person, so that no file of root stays behind. As root without sudo nothing changes.
leave_root() {
  local user=${SUDO_UID:-0} folder
  if [[ $EUID -eq 0 && $user -ne 0 && $(stat -c %u "$repo") -eq $user ]]; then
    for folder in build .venv .bench-venv demo-output dist; do
      [[ -e $repo/$folder ]] && chown -R "$SUDO_UID:$SUDO_GID" "$repo/$folder"
    done
    local home
    home=$(getent passwd "$user" | cut -d: -f6)
    exec env -u SUDO_UID HOME="$home" USER="$SUDO_USER" LOGNAME="$SUDO_USER" \
      setpriv --reuid "$user" --regid "$SUDO_GID" --init-groups -- "$@"
  fi
  for folder in build .venv .bench-venv; do
    [[ ! -e $repo/$folder || -w $repo/$folder ]] ||
      die "$repo/$folder belongs to another user; give it back with: sudo chown -R $(id -un): '$repo/$folder'"
  done
}

# one_at_a_time: waits for other scripts of this tree that prepare or build; done_with_tree ends it.
one_at_a_time() {
  mkdir -p build
  exec 9>build/.lock
  flock -n 9 || { echo "waiting for another script that builds in this tree" >&2; flock 9; }
}
done_with_tree() { exec 9>&-; }

# ensure_venv FOLDER REQUIREMENTS: a Python 3.11 environment with the listed packages. A stamp with the
# requirements' hash is written last, so a half-made environment is finished or made again.
ensure_venv() {
  local folder=$1 requirements=$2 wanted
  wanted="$folder $($system_python --version) $(sha256sum <"$requirements")"
  if [[ -f $folder/.stamp && $(<"$folder/.stamp") == "$wanted" ]] && "$folder/bin/python" -c '' 2>/dev/null; then
    return 0
  fi
  say "Preparing $folder"
  rm -f "$folder/.stamp"
  # A moved or half-made environment fails one of these; pip names the folder it belongs to.
  if ! "$folder/bin/python" -m pip --version 2>/dev/null | grep -qF "$folder/"; then
    $system_python -m venv --clear "$folder" || die "cannot create $folder; is python3.11-venv installed?"
  fi
  "$folder/bin/python" -m pip install --quiet --disable-pip-version-check -r "$requirements" ||
    die "pip could not install $requirements; is the package index reachable?"
  printf '%s\n' "$wanted" >"$folder/.stamp"
}

# build PRESET [TARGET]: configures when needed and compiles everything, or one target, into build/PRESET.
# The release build is also installed into the environment; other presets install into build/PRESET/site.
build() {
  local preset=$1 target=${2:-all} folder=$repo/build/$1 site
  local cache=$folder/CMakeCache.txt
  if [[ -f $cache ]] && ! grep -qxF "CMAKE_HOME_DIRECTORY:INTERNAL=$repo" "$cache"; then
    rm -rf "$folder" # the tree was moved or copied
  fi
  if [[ ! -f $folder/build.ninja || CMakePresets.json -nt $folder/build.ninja ]]; then
    say "Configuring $preset"
    cmake --preset "$preset" -DPython_EXECUTABLE=$system_python
  fi
  say "Building $preset"
  cmake --build "$folder" --target "$target"
  [[ $preset == fuzz ]] && return 0
  site=$folder/site
  [[ $preset == release ]] && site=$site_packages
  cmake --install "$folder" --component python --prefix "$site" >/dev/null
  # Beside the module, where the Parquet backend looks for it.
  [[ $site == "$site_packages" || ! -d $site_packages/pyarrow ]] || ln -sfn "$site_packages/pyarrow" "$site/pyarrow"
}

# prepare PRESET [TARGET]: environment and build, with the tree locked meanwhile.
prepare() {
  one_at_a_time
  ensure_venv "$venv" scripts/requirements.txt
  build "$@"
  done_with_tree
}
