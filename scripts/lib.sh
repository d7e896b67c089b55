# shellcheck shell=bash
# What the scripts of this folder share. To be sourced, not run; expects "set -euo pipefail".

build_packages=(g++ cmake ninja-build qt6-base-dev libqt6sql6-psql libpq-dev libssl-dev postgresql)
# shellcheck disable=SC2034 # for the scripts that source this file
test_packages=("${build_packages[@]}" clang-format iso-codes openssl iproute2
    bzip2 xz-utils zstd python3 python3-pexpect python3-pyte black)

# shellcheck disable=SC2034
sanitizer_packages=(clang libclang-rt-14-dev lld)

say() { printf '%s: %s\n' "${0##*/}" "$*" >&2; }

die() {
    say "$@"
    exit 1
}

# Installs those of the named Debian packages that are missing. Silent when none is.
need_packages() {
    local missing=() package as_root=()
    if ! command -v dpkg-query >/dev/null; then
        say "not a Debian system: needs what Debian calls $*"
        return 0
    fi
    for package; do
        [[ $(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null) == installed* ]] \
            || missing+=("$package")
    done
    ((${#missing[@]})) || return 0

    if ((EUID != 0)); then
        command -v sudo >/dev/null \
            || die "packages are missing, install them as root: apt-get install ${missing[*]}"
        as_root=(sudo)
    fi
    local log
    log=$(dirname "${BASH_SOURCE[0]}")/../build/packages.log
    mkdir -p "${log%/*}"
    say "Debian packages are missing: ${missing[*]}"
    # Lists that cannot be refreshed may still be good enough to install from.
    "${as_root[@]}" apt-get -q update >"$log" 2>&1 \
        || say "apt-get update failed, going on with the old lists"
    say "${as_root[*]:+sudo }apt-get install: $(install_size "${missing[@]}")which takes some minutes"
    if ! "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get -q install -y --no-install-recommends "${missing[@]}" >>"$log" 2>&1; then
        cat "$log" >&2
        die "could not install ${missing[*]}"
    fi
}

# What installing the named packages means, such as "212 packages, 230 MB to fetch, 900 MB on disk, ".
# For need_packages, whose as_root it needs: others may not even look.
install_size() {
    "${as_root[@]}" env LC_ALL=C apt-get -q --assume-no install --no-install-recommends "$@" 2>/dev/null \
        | sed -nE 's/^.*, ([0-9]+) newly installed.*/\1 packages, /p
                   s/^Need to get ([0-9.,]+ .?B)[ \/].*/\1 to fetch, /p
                   s/^After this operation, ([0-9.,]+ .?B) of .*/\1 on disk, /p' \
        | tr -d '\n' || true
}

# Sets server_bin to POSTGRES_BIN, or else the folder of the newest server programs. Debian keeps
# them off the PATH.
find_server() {
    if [[ -n ${POSTGRES_BIN-} ]]; then
        [[ -x $POSTGRES_BIN/initdb ]] || die "there is no initdb in $POSTGRES_BIN"
        server_bin=$POSTGRES_BIN
        return
    fi
    server_bin=$(printf '%s\n' /usr/lib/postgresql/*/bin/initdb | sort -V | tail -n 1)
    [[ -x $server_bin ]] || server_bin=$(command -v initdb) \
        || die "no PostgreSQL server programs found (apt-get install postgresql)"
    server_bin=${server_bin%/initdb}
}

# Runs a server program. PostgreSQL refuses to run as root, so root hands over to the account
# postgres, which may not be able to read the current folder.
as_server() (
    cd /
    if ((EUID == 0)); then
        exec setpriv --reuid=postgres --regid=postgres --init-groups -- "$@"
    else
        exec "$@"
    fi
)

# Creates an empty cluster in the folder $1: a copy of the one that is kept for each account and
# version of the server, since making one takes ten times longer.
create_cluster() {
    local version kept new
    version=$("$server_bin/postgres" --version | cksum)
    kept=$(dirname "${BASH_SOURCE[0]}")/../build/cluster-$EUID-${version%% *}
    if [[ -r $kept/PG_VERSION ]]; then
        cp -aT "$kept" "$1"
        return
    fi
    as_server "$server_bin/initdb" --pgdata="$1" --auth=trust --username=postgres \
        --encoding=UTF8 --locale=C.UTF-8 --no-sync >/dev/null || return
    new=$kept.$$
    if ! { mkdir -p "${kept%/*}" && cp -aT "$1" "$new" && mv -T "$new" "$kept"; } 2>/dev/null; then
        rm -rf "$new" # another script was faster, or nothing can be kept here
    fi
}

# Starts the cluster in the folder $1 with its socket in the folder $2 and its log in the file $3.
# Nothing but the Unix socket is served: whoever can enter its folder is let in without a password.
start_cluster() {
    as_server "$server_bin/pg_ctl" start --silent --wait --pgdata="$1" --log="$3" \
        --options="-c listen_addresses= -c port=5432 -c unix_socket_directories=$2" && return
    as_server cat "$3" >&2
    return 1
}

# Whether a socket can live in the folder $1. Its path is limited to 107 bytes, and the options of
# the server are split at blanks and commas.
fits_socket() {
    local LC_ALL=C
    ((${#1} + 15 <= 107)) && [[ $1 != *[!A-Za-z0-9_./-]* ]]
}
