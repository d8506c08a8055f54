#!/usr/bin/env bash
# What ./run and ./test say while a package manager works for a while, and when it fails. The one here only pretends.
. "${BASH_SOURCE[0]%/*}/support.sh"
[ "$(uname -s)" = Linux ] || skip "Homebrew is not pretended"

mkdir -p bin checkout
cp -R "$SOURCE/cmake" checkout
printf '#!/bin/sh\nexit 1\n' >bin/dpkg-query
printf '#!/bin/sh\nshift\nexec "$@"\n' >bin/sudo
cat >bin/apt-get <<'END'
#!/bin/sh
for piece in first second third fourth; do
    echo "Unpacking $piece (1.0) ..."
    sleep 2
done
echo "E: no more pieces"
exit "$APT_EXIT"
END
chmod +x bin/*
install_missing() {
    # shellcheck disable=SC2016
    PATH="$WORK/bin:$PATH" APT_EXIT=$1 root="$WORK/checkout" bash -c '. "$root/cmake/build.sh"; . "$root/cmake/packages.sh"
        need_packages build && echo "on we go" >&2' 2>&1
}
expect_match "failing" "$(install_missing 1)" \
    $'*: installing *\n*: Unpacking +([a-z])\n*\nE: no more pieces\n*: the packages could not be installed: g++ *'
expect_match "installing" "$(install_missing 0)" $'*: installing g++ *\n*: Unpacking +([a-z])\non we go'
finish
