#!/bin/bash
# The examples of docs/library.md, in their order one program, built against the installed headers: it
# prints what the page shows. The first one stands outside of main. README's numbers of errors and the
# page's are those of the header.
# ctest-timeout: 300
. "$(dirname "$0")/lib/driver.bash"
page=$source_dir/docs/library.md prefix=$scratch/prefix

cmake --install "$build" --prefix "$prefix" >"$scratch/log" 2>&1 || { fail "$(cat "$scratch/log")" && exit 1; }
awk '/^```cpp/ { is_code = 1; ++block; next } /^```/ { if (is_code && block > 1) print "}"; if (is_code && block == 1) print "int main() {"
    is_code = 0; next }
  is_code && /^#include/ { print > includes; next }
  is_code { if (block > 1 && block != begun) print "{"; begun = block; print }' \
  includes="$scratch/includes" "$page" >"$scratch/body"
{ sort -u "$scratch/includes"; cat "$scratch/body"; echo '}'; } >"$scratch/examples.cpp"
libdir=$(dirname "$(find "$prefix" -name mailserver-domain.pc)")
read -ra sanitize <<<"$(sanitizer_options "$libdir/../libmailserver-domain.so")"
read -ra needs <<<"$(PKG_CONFIG_PATH=$libdir pkg-config --define-prefix --cflags --libs mailserver-domain) $(pkg-config --cflags jsoncpp)"
g++ -std=c++17 -Wall -Wextra -Werror "${sanitize[@]}" "$scratch/examples.cpp" -o "$scratch/examples" \
  "${needs[@]}" 2>"$scratch/log" || { fail "$(head -40 "$scratch/log")" && exit 1; }
for dialect in "g++ -std=c++20" "clang++ -std=c++17" "clang++ -std=c++20"; do
  # shellcheck disable=SC2086
  ! command -v ${dialect%% *} >"$scratch/found" || $dialect -Wall -Wextra -Werror -Wno-unused-command-line-argument -fsyntax-only "$scratch/examples.cpp" \
    "${needs[@]}" 2>"$scratch/log" || fail "$dialect: $(head -40 "$scratch/log")"
done
new_root company
export LD_LIBRARY_PATH=$libdir/..
cd "$scratch" && ./examples >"$scratch/printed" || fail "the examples fail"
awk '/^```text/ { is_text = 1; next } /^```/ { is_text = 0 } is_text' "$page" >"$scratch/shown"
alike "what the examples print" "$scratch/shown" "$scratch/printed"
numbers=$(sed -n 's/^| \([0-9]*\) | .*/\1/p' "$page" | paste -sd ' ')
same "error numbers" "$numbers" \
  "0 $(grep -ohE '= [0-9]+;|return [0-9]+;' "$source_dir"/lib-domain/base/error_code.{h,cpp} |
    grep -oE '[0-9]+' | grep -vx 0 | sort -nu | paste -sd ' ')"
