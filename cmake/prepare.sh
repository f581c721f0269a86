# Sourced by `run` and `check`: makes the machine ready. Asks nothing.

say() { printf '%s: %s\n' "$(basename "$0")" "$*" >&2; }

# as_root COMMAND...: as it is for root, else through sudo.
as_root() {
    if [ "$(id -u)" -eq 0 ]; then "$@"; else sudo "$@"; fi
}

# need_packages KIND...: installs what the machine lacks of these kinds in packages.txt.
need_packages() {
    local wanted missing
    wanted=$(awk -v kinds=" $* " '!/^#/ && NF == 2 && index(kinds, " " $1 " ") { print $2 }' cmake/packages.txt)
    # shellcheck disable=SC2086
    missing=$(comm -13 \
        <(dpkg-query -W -f='${db:Status-Abbrev} ${Package}\n' | awk '$1 == "ii" { print $2 }' | sort -u) \
        <(printf '%s\n' $wanted | sort -u))
    [ -n "$missing" ] || return 0
    say "installing:" $missing
    as_root apt-get -qq update
    # shellcheck disable=SC2086
    as_root env DEBIAN_FRONTEND=noninteractive apt-get -qq install -y --no-install-recommends $missing >&2
}

# need_locale NAME: makes a locale that the machine lacks, "de_DE" say, in UTF-8.
need_locale() {
    locale -a 2>/dev/null | grep -qix "$1.utf-\?8" || as_root localedef -i "$1" -f UTF-8 "$1.UTF-8"
}

# build PRESET [TARGET...]: configures once, builds what changed.
build() {
    local preset=$1
    shift
    if [ ! -f "build/$preset/build.ninja" ]; then
        say "building ($preset); the first time takes some minutes"
        cmake --preset "$preset" >&2
    fi
    cmake --build --preset "$preset" ${1:+--target "$@"} >&2
}
