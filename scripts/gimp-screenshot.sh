#!/usr/bin/env bash
# Takes the README's picture of the plug-in's dialog: GIMP opens the demo's
# noisy photo under a virtual X server, the dialog is opened, Auto pressed,
# its preview left to render, and the dialog's window saved as docs/gimp-dialog.png.
# Needs a build in build/ (cmake --build build) and xvfb-run and xdotool.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
out=${1:-$top/docs/gimp-dialog.png}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

plugins=$(pkg-config --variable=gimplibdir gimp-2.0)/plug-ins
mkdir -p "$work/home" "$work/tmp"
echo "(plug-in-path \"$plugins/script-fu:$plugins/file-png:$plugins/file-tiff:$top/build/apps/gimp/plug-ins\")" >"$work/gimprc"
"$top/build/apps/murmex" demo --out-dir "$work/demo" >/dev/null 2>&1

# A window grabber on GDK, which the plug-in kit brings along.
cat >"$work/grab.c" <<'C'
#include <stdlib.h>
#include <gtk/gtk.h>
int main(int argc, char** argv)
{
    gtk_init(&argc, &argv);
    GdkWindow* window = gdk_window_foreign_new((GdkNativeWindow)strtoul(argv[1], NULL, 0));
    gint width, height;
    gdk_drawable_get_size(window, &width, &height);
    GdkPixbuf* shot = gdk_pixbuf_get_from_drawable(NULL, window, NULL, 0, 0, 0, 0, width, height);
    return shot && gdk_pixbuf_save(shot, argv[2], "png", NULL, NULL) ? 0 : 1;
}
C
cc -w -o "$work/grab" "$work/grab.c" $(pkg-config --cflags --libs gtk+-2.0)

cat >"$work/shot.sh" <<SH
gimp-2.10 -n -s -d -f -c --gimprc=$work/gimprc -b '(let* ((img (car (gimp-file-load 1 "$work/demo/noisy.tif" "noisy.tif")))) (plug-in-murmex-denoise RUN-INTERACTIVE img (car (gimp-image-get-active-drawable img)) "" 10 10 10 10 10 10 0 1.7 1 0 0))' -b '(gimp-quit 0)' &
gimp=\$!
window=\$(timeout 60 xdotool search --sync --name '^Murmex Noise Reduction\$' | head -n 1)
sleep 10
xdotool windowfocus --sync "\$window" key alt+a
sleep 10
"$work/grab" "\$window" "$out"
xdotool windowfocus --sync "\$window" key Escape
wait \$gimp
SH
env HOME="$work/home" XDG_CACHE_HOME="$work/home/.cache" XDG_CONFIG_HOME="$work/home/.config" \
  XDG_DATA_HOME="$work/home/.local/share" TMPDIR="$work/tmp" GIMP2_DIRECTORY="$work/profile" \
  MURMEX_PROFILES="$work/library" \
  timeout 300 xvfb-run -a -s "-screen 0 1280x1024x24" sh "$work/shot.sh" >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }
echo "$out"
