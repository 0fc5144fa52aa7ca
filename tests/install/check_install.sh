#!/usr/bin/env bash
# Installs the build into a temporary DESTDIR and checks the result as a
# desktop would see it: files in the GNU layout, the resource folder with its
# links, a valid desktop entry, AppStream file and man page, the icon sizes,
# --help and --version without a display, then the installed program itself
# serving on a free loopback port until SIGTERM ends it with status 0.
#
#   check_install.sh <build dir> <version> <application id>
set -euo pipefail
build=$1 version=$2 id=$3

work=$(mktemp -d)
pid=
cleanup() {
  if [[ -n "$pid" ]]; then kill -KILL "$pid" 2>/dev/null || true; wait "$pid" 2>/dev/null || true; fi
  rm -rf "$work"
}
trap cleanup EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

root=$work/root
DESTDIR=$root cmake --install "$build" --prefix /usr >"$work/install.log" || { cat "$work/install.log"; fail "install"; }
usr=$root/usr
share=$usr/share/quillon-server

[[ -x $usr/bin/quillon-server ]] || fail "no bin/quillon-server"
for file in QuillonServer.jar libMiniAgent.so Info.ini mac-menu-on.png mac-menu-off@2x.png; do
  [[ -f $share/$file && ! -L $share/$file ]] || fail "no $file in share/quillon-server"
done
grep -qx "CFBundleShortVersionString=${version%.*}" "$share/Info.ini" || fail "Info.ini has another version"
# Every link of the build's resource folder, as the same link.
links=0
for link in "$build"/resources/*; do
  [[ -L $link ]] || continue
  name=${link##*/}
  [[ -L $share/$name ]] || fail "link $name is not installed as a link"
  [[ $(readlink "$share/$name") == "$(readlink "$link")" ]] || fail "link $name points elsewhere"
  links=$((links + 1))
done
((links > 0)) || fail "the build's resource folder has no links (jna.jar at least)"
[[ -L $share/jna.jar ]] || fail "no jna.jar link"

desktop=$usr/share/applications/$id.desktop
metainfo=$usr/share/metainfo/$id.metainfo.xml
desktop-file-validate "$desktop" || fail "desktop-file-validate"
grep -qx "Icon=$id" "$desktop" && grep -qx "Exec=quillon-server" "$desktop" || fail "desktop entry Icon/Exec"
appstreamcli validate --no-net "$metainfo" || fail "appstreamcli validate"
grep -q "<release version=\"$version\"" "$metainfo" || fail "no release $version in the AppStream file"

copyright=$usr/share/doc/quillon-server/copyright
grep -q "^Files: \*" "$copyright" || fail "no copyright file"
grep -q "^Comment: hls.js [0-9]" "$copyright" || fail "the copyright file does not name the bundled hls.js"

man=$usr/share/man/man1/quillon-server.1.gz
[[ -f $man ]] || fail "no man page"
warnings=$(LC_ALL=C.UTF-8 MANROFFSEQ='' MANWIDTH=80 man --warnings -E UTF-8 -l -Tutf8 -Z "$man" 2>&1 >/dev/null)
[[ -z $warnings ]] || fail "man page warnings: $warnings"

icons=$usr/share/icons/hicolor
[[ -f $icons/scalable/apps/$id.svg ]] || fail "no scalable icon"
for size in 16 22 24 32 48 64 128 256; do
  png=$icons/${size}x${size}/apps/$id.png
  [[ -f $png ]] || fail "no ${size}px icon"
  # Width and height from the PNG header (big-endian at bytes 16 and 20).
  read -r w h < <(od -An -tu1 -j16 -N8 "$png" | awk '{ print $1*16777216+$2*65536+$3*256+$4, $5*16777216+$6*65536+$7*256+$8 }')
  [[ $w == "$size" && $h == "$size" ]] || fail "${size}px icon is ${w}x${h}"
done

# --help and --version answer without a display: nothing graphical (and so
# no JVM) has been made when they print.
for option in --version --help; do
  out=$(env -u DISPLAY -u WAYLAND_DISPLAY QT_QPA_PLATFORM=xcb "$usr/bin/quillon-server" "$option" 2>"$work/err") \
    || fail "$option failed: $(cat "$work/err")"
  [[ -z $(cat "$work/err") ]] || fail "$option wrote to standard error: $(cat "$work/err")"
  case $option in
    --version) [[ $out == "Quillon Server $version" ]] || fail "--version printed: $out" ;;
    --help) [[ $out == Usage:\ quillon-server* ]] || fail "--help printed: $out" ;;
  esac
done

# The installed program, on a home of its own and a free port; it must find
# its resource folder at ../share/quillon-server.
home=$work/home
mkdir -p "$home/config/Quillon" "$work/runtime"
chmod 700 "$work/runtime"
port=$(python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
printf 'ListenOnCustomPort=bool:true\nCustomPort=int:%s\n' "$port" >"$home/config/Quillon/QuillonServer.conf"
launch=(env -u QUILLON_RESOURCE_DIR HOME="$home" XDG_CONFIG_HOME="$home/config" XDG_RUNTIME_DIR="$work/runtime"
  QT_QPA_PLATFORM=offscreen JAVA_TOOL_OPTIONS=-Dquillon.bind.address=127.0.0.1 "$usr/bin/quillon-server")
"${launch[@]}" >"$work/program.log" 2>&1 &
pid=$!
status=
for _ in $(seq 600); do
  kill -0 "$pid" 2>/dev/null || break
  status=$(curl -s -o "$work/page.html" -w '%{http_code}' --max-time 2 "http://127.0.0.1:$port/status" || true)
  [[ $status == 200 ]] && break
  sleep 0.1
done
[[ $status == 200 ]] || { cat "$work/program.log" >&2; fail "the installed program did not serve on port $port (HTTP '$status')"; }
grep -q "$port" "$work/page.html" || fail "the status page (/status) does not name port $port"

# SIGTERM quits cleanly once the event loop runs (before that the JVM's own
# handler ends the process): a second launch is answered only from there.
"${launch[@]}" >"$work/second.log" 2>&1 || { cat "$work/second.log" >&2; fail "a second launch failed"; }
for _ in $(seq 300); do
  grep -q "Preferences window requested by another launch" "$work/program.log" && break
  sleep 0.1
done
grep -q "Preferences window requested by another launch" "$work/program.log" || fail "the second launch was not answered"
kill -TERM "$pid"
code=0
for _ in $(seq 300); do kill -0 "$pid" 2>/dev/null || break; sleep 0.1; done
kill -0 "$pid" 2>/dev/null && fail "still running 30 s after SIGTERM"
wait "$pid" || code=$?
pid=
((code == 0)) || { cat "$work/program.log" >&2; fail "exit status $code after SIGTERM"; }
if grep -q "Missing file\|Couldn't find" "$work/program.log"; then
  cat "$work/program.log" >&2; fail "the program missed a resource"
fi
echo "installed into a DESTDIR, validated, served on port $port, ended with status 0"
