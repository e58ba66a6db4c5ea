#!/usr/bin/env bash
# Drives the vek program end to end: the demo, then info, convert with every option
# family and demosaic on the files the demo wrote. Usage: cli_test.sh VEK WORKDIR
set -euo pipefail
vek=$1
dir=$2
rm -rf "$dir" && mkdir -p "$dir"
run() { echo "+ vek $*"; "$vek" "$@"; }
fails() { if "$vek" "$@" >/dev/null 2>&1; then echo "expected failure: vek $*"; exit 1; fi; }

run --help | grep -q "convert IN OUT"
[ "$(run version | tail -1)" = "0x00040607" ]
run demo "$dir" | tee "$dir/demo.txt" | grep -q "demo finished"
for f in picture.bmp picture.tif picture-lzw.tif picture.eps picture.jpg; do
  run info "$dir/$f" | grep -q "320 x 240"
done
run info "$dir/picture.jpg" | grep -q "components 3"

run convert "$dir/picture.bmp" "$dir/a.tif" --to tiff-lzw --crop 10,20,101,51 --mirror
run info "$dir/a.tif" | grep -q "101 x 51"
run convert "$dir/a.tif" "$dir/b.bmp" --rotate 90 --format Y8
run info "$dir/b.bmp" | grep -q "PALETTED 51 x 101"
run convert "$dir/picture.jpg" "$dir/c.eps" --scale 160,120
run info "$dir/c.eps" | grep -q "160 x 120"
run convert "$dir/picture.tif" "$dir/d.jpg" --quality 16 --subsample 2
run info "$dir/d.jpg" | grep -q "160 x 120"
run convert "$dir/picture.bmp" "$dir/e.bmp" --bin 4 --format YUV422
run info "$dir/e.bmp" | grep -q "80 x 60"
run convert "$dir/picture.bmp" "$dir/f.raw" --format BGRX32
[ "$(stat -c %s "$dir/f.raw")" = "307200" ]

# A grey picture demosaiced in every scheme and phase.
run convert "$dir/picture.bmp" "$dir/mosaic.bmp" --format Y8
for s in 1 2 3 4; do
  run demosaic "$dir/mosaic.bmp" "$dir/colour$s.bmp" --scheme $s --phase $s
done
run info "$dir/colour4.bmp" | grep -q "160 x 120"

fails convert "$dir/missing.bmp" "$dir/x.bmp"
fails convert "$dir/picture.bmp" "$dir/x.xyz"
fails convert "$dir/picture.bmp" "$dir/x.bmp" --rotate 45
fails convert "$dir/picture.bmp" "$dir/x.bmp" --crop 1,2
fails demosaic "$dir/picture.bmp" "$dir/x.bmp" --scheme 9
echo "cli ok"
