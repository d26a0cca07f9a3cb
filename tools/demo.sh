#!/usr/bin/env bash
# The SDK end to end on loopback: filled in as the SDK grows.
set -euo pipefail
bin=$1
echo "ZarvoMediaPlayer demo: tools in $bin"
