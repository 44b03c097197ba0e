#!/usr/bin/env bash
# Sets up, builds and simulates: ./run.sh [SCENE [OPTIONS]]; without a scene, scenes/plume.json, which
# ends with a rendered picture.
set -euo pipefail
root=$(cd "$(dirname "$0")" && pwd)
"$root/scripts/setup"
[ -x "$root/build/sulva" ] || echo "building (a few minutes the first time) ..." >&2
"$root/scripts/build" "$root/build" -- sulva

if [ $# -gt 0 ]; then
  exec "$root/build/sulva" run "$@"
fi
"$root/build/sulva" run "$root/scenes/plume.json" --out "$root/out/plume"
echo "previews: $root/out/plume/preview" >&2
echo "volumes:  $root/out/plume/vdb" >&2
echo "rendering frame 75 ..." >&2
"$root/build/sulva" render "$root/scenes/plume.json" --frames 75 --cached --out "$root/out/plume"
echo "picture:  $root/out/plume/render/0075.png" >&2
