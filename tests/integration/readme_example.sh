#!/bin/bash
# The C++ example of README.md, built against the installed library, as written there and with CMake.
# ctest-timeout: 300
. "$(dirname "$0")/lib/driver.bash"

# logged COMMAND... : its output is shown only when it fails, and then ends the script.
logged() { "$@" >"$scratch/log" 2>&1 || { fail "$*: $(cat "$scratch/log")" && exit 1; }; }

prefix=$scratch/prefix
logged cmake --install "$build" --prefix "$prefix"
sed -n '/^```cpp$/,/^```$/p' "$source_dir/README.md" | sed '/^```/d' >"$scratch/example.cpp"
libdir=$(dirname "$(find "$prefix" -name mailserver-domain.pc)")
sanitize=()
nm -D "$libdir/../libmailserver-domain.so" | grep -q __asan_init && sanitize=(-fsanitize=address -fsanitize=undefined)

export PKG_CONFIG_PATH=$libdir
read -ra needs <<<"$(pkg-config --cflags --libs mailserver-domain)"
needs+=("-Wl,-rpath,$(pkg-config --variable=libdir mailserver-domain)")
logged g++ -std=c++17 -Wall -Wextra -Werror "${sanitize[@]}" "$scratch/example.cpp" \
  -o "$scratch/example" "${needs[@]}"
new_root company
for time in first second; do
  out=$("$scratch/example") || fail "the example failed the $time time"
  same "what the example prints" "$out" "$(printf '%s %s@example.com\n' anna{,} ben{,} erik{,} erika{,} user{,})"
done
"$prefix/bin/mdomain" domain list | grep -q example.com || fail "mdomain does not run from its prefix"

mkdir "$scratch/project"
cat >"$scratch/project/CMakeLists.txt" <<END
cmake_minimum_required(VERSION 3.21)
project(example CXX)
set(CMAKE_CXX_STANDARD 17)
find_package(mailserver-domain 1.0 REQUIRED)
add_executable(example ../example.cpp)
target_compile_options(example PRIVATE ${sanitize[*]})
target_link_options(example PRIVATE ${sanitize[*]})
target_link_libraries(example mailserver-domain::mailserver-domain)
END
logged cmake -S "$scratch/project" -B "$scratch/project/build" -G Ninja -DCMAKE_PREFIX_PATH="$prefix"
logged cmake --build "$scratch/project/build"
