#!/usr/bin/env bash
# Builds the Debian package from a build tree, checks it with lintian, extracts it into a
# scratch root (a prefix that is not /usr) and runs every example of its own protocol
# reference from the extracted copy, in a scratch folder, with nothing from the source tree.
#
#   package_test.sh BUILD_DIR CHECKER SOUND_SERVER REQUIRED_WORDS [NAME=FILE]...
#
# CHECKER is tests/cli/protocol_examples.py (copied into the scratch folder before use),
# SOUND_SERVER the test sound server script, REQUIRED_WORDS the subcommands that must have an
# example; each NAME=FILE is an input made by the build (answer's test model) that is copied
# into the scratch folder and named to the examples as $NAME. Exit status 0 when every check
# passed.
set -euo pipefail
build=$(cd "$1" && pwd)
checker=$2
sound_server=$3
required=$4
shift 4

work=$(mktemp -d /tmp/package-test.XXXXXX)
trap 'rm -rf "$work"' EXIT
failures=0
check() {  # check DESCRIPTION COMMAND...: runs COMMAND, reports, counts a failure
  local what=$1
  shift
  if "$@"; then echo "ok    $what"; else echo "FAIL  $what"; failures=$((failures + 1)); fi
}
section() { echo "== $1 (at ${SECONDS} s)"; }

section "building the package"
# gzip instead of the package's xz: the same files, made several times faster.
if ! "${CPACK:-cpack}" -G DEB -D CPACK_DEBIAN_COMPRESSION_TYPE=gzip --config "$build/CPackConfig.cmake" -B "$work/cpack" >"$work/cpack.log" 2>&1; then
  cat "$work/cpack.log"
  echo "FAIL  cpack could not build the package"
  exit 1
fi
debs=("$work"/cpack/tallowbrook-helper_*.deb)
[[ -f "${debs[0]}" && ${#debs[@]} -eq 1 ]] || { echo "FAIL  no single .deb was made"; exit 1; }
deb=${debs[0]}
echo "$(basename "$deb"): $(stat -c %s "$deb") bytes"
dpkg-deb --field "$deb"

section "dependencies"
depends=$(dpkg-deb --field "$deb" Depends)
# The package names in Depends, one a line (versions and alternatives' separators dropped).
names=$(tr ',|' '\n\n' <<<"$depends" | awk 'NF {print $1}')
# Libraries found by dpkg-shlibdeps, and the data the helper needs at run time.
for package in libc6 libstdc++6 libtesseract5 liblept5 libpoppler-cpp0v5 libspng0 \
  libpango-1.0-0 libpangocairo-1.0-0 libcairo2 libespeak-ng1 libpulse0 libcurl4 libsoxr0 \
  tesseract-ocr-eng tesseract-ocr-osd fonts-dejavu-core; do
  check "Depends names $package" grep -qxF -- "$package" <<<"$names"
done
# answer's module needs ICU; llama.cpp's libraries are inside the package, and nothing of
# Node runs the model.
check "Depends names libicu72" grep -qxF -- libicu72 <<<"$names"
check "Depends does not name nodejs" bash -c "! grep -qxF -- nodejs <<<'$names'"
# apt resolves the package's dependencies on this Debian machine (nothing is installed).
check "apt-get install --simulate accepts the package" \
  bash -c "apt-get install --simulate '$deb' >'$work/apt.log' 2>&1 || { cat '$work/apt.log'; false; }"
# Every dependency is a real Debian package: installed here by scripts/install-deps, or known to
# apt.
for name in $names; do
  check "dependency $name is a Debian package" \
    bash -c "dpkg-query -W -f='\${Status}' '$name' 2>/dev/null | grep -q 'install ok installed' ||
             apt-cache show '$name' >/dev/null 2>&1"
done

section "lintian"
lintian --fail-on error --display-info --no-tag-display-limit "$deb" | tee "$work/lintian.txt" || true
check "lintian reports no errors" bash -c "! grep -q '^E: ' '$work/lintian.txt'"

section "the extracted package"
root="$work/root"
dpkg-deb -x "$deb" "$root"
prefix="$root/usr"
helper="$prefix/bin/tallowbrook-helper"
docs="$prefix/share/doc/tallowbrook-helper"
check "bin/tallowbrook-helper is executable" test -x "$helper"
for module in ocr pdf textpdf speech mcp text llama llama-jinja; do
  check "lib/tallowbrook-helper/tallowbrook-$module.so" test -f "$prefix/lib/tallowbrook-helper/tallowbrook-$module.so"
done
check "the manual page" test -f "$prefix/share/man/man1/tallowbrook-helper.1.gz"
# llama.cpp: the library, its common part (Jinja templates) and a CPU backend per processor
# family, beside the modules; no JavaScript anywhere.
llama="$prefix/lib/tallowbrook-helper/llama"
for library in libllama.v0.4.0.so libggml.v0.4.0.so libggml-base.so libllama-common.so \
  libggml-cpu-x64.so libggml-cpu-haswell.so; do
  check "lib/tallowbrook-helper/llama/$library" test -f "$llama/$library"
done
check "no JavaScript in the package" \
  bash -c "! dpkg-deb --contents '$deb' | grep -qE '\\.(m?js|node)\$'"
for file in protocol.md copyright changelog.Debian.gz examples/scan.png examples/letter.rtf examples/notes.json; do
  check "share/doc/tallowbrook-helper/$file" test -f "$docs/$file"
done
# No ELF file (an executable or a shared object) in the package points the
# loader outside the package (a build folder) or at the
# current directory (an empty entry): only entries relative to $ORIGIN are allowed.
elf_with_path=""
while IFS= read -r -d '' file; do
  if file -b "$file" | grep -q '^ELF'; then
    path=$(readelf -d "$file" | sed -n 's/.*R\(UN\)\{0,1\}PATH.*\[\(.*\)\]$/\2/p')
    [[ -z "$path" ]] && continue
    IFS=':' read -ra entries <<<"$path:"
    for entry in "${entries[@]}"; do
      [[ "$entry" == '$ORIGIN'* ]] || { elf_with_path+=" ${file#"$root"} ($path)"; break; }
    done
  fi
done < <(find "$root" -type f \( -perm -u+x -o -name '*.so*' -o -name '*.node' \) -print0)
check "no RPATH or RUNPATH outside \$ORIGIN${elf_with_path}" test -z "$elf_with_path"

section "the manual page"
man_warnings=$(LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings -E UTF-8 -l -Tutf8 -Z \
  "$prefix/share/man/man1/tallowbrook-helper.1.gz" 2>&1 >/dev/null)
check "man reports no warnings ${man_warnings}" test -z "$man_warnings"
rendered=$(MANWIDTH=80 man -l "$prefix/share/man/man1/tallowbrook-helper.1.gz" 2>/dev/null)
for word in capabilities vision-ocr pdf-page pdf-text answer record speak rtf-text mcp-bridge \
  text-pdf "EXIT STATUS" ENVIRONMENT FILES TALLOWBROOK_MCP_TOKEN TALLOWBROOK_LID_DIAGNOSTICS; do
  check "the manual page covers $word" grep -q -- "$word" <<<"$rendered"
done

section "every example of the installed reference, run by the installed helper"
mkdir "$work/elsewhere" "$work/inputs"
cp "$checker" "$work/elsewhere/protocol_examples.py"
inputs=()
for input in "$@"; do
  cp "${input#*=}" "$work/inputs/"
  inputs+=(--env "${input%%=*}=$work/inputs/$(basename "${input#*=}")")
done
cd "$work/elsewhere"
check "protocol examples" python3 protocol_examples.py --helper "$helper" \
  --doc "$docs/protocol.md" --examples "$docs/examples" --sound-server "$sound_server" \
  --require "$required" "${inputs[@]}"
# The modules come from the extracted prefix, found beside the executable.
cp "$docs/examples/notes.json" .
"$helper" text-pdf notes.pdf <notes.json >/dev/null
loaded=$(LD_DEBUG=files "$helper" pdf-text notes.pdf 1 2>&1 >/dev/null | grep -o '/[^ ]*tallowbrook-pdf\.so' | sort -u)
check "pdf-text loads $loaded" test "$loaded" = "$prefix/lib/tallowbrook-helper/tallowbrook-pdf.so"

section "cmake --install into a prefix, then the prefix moved"
"${CMAKE:-cmake}" --install "$build" --prefix "$work/opt" >"$work/install.log"
mv "$work/opt" "$work/moved"
moved="$work/moved/bin/tallowbrook-helper"
check "the moved prefix has the manual page and the reference" \
  test -f "$work/moved/share/man/man1/tallowbrook-helper.1.gz" -a -f "$work/moved/share/doc/tallowbrook-helper/protocol.md"
out=$("$moved" pdf-text notes.pdf 1)
check "pdf-text from the moved prefix" grep -q '"text":"Field notes"' <<<"$out"
loaded=$(LD_DEBUG=files "$moved" pdf-text notes.pdf 1 2>&1 >/dev/null | grep -o '/[^ ]*tallowbrook-pdf\.so' | sort -u)
check "the moved helper loads $loaded" test "$loaded" = "$work/moved/lib/tallowbrook-helper/tallowbrook-pdf.so"

echo "$failures failed"
((failures == 0))
