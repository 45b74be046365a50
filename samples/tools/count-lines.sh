#!/bin/sh
# Counts the lines of every text file below the folder given (default: this one's parent).
set -eu
root=${1:-$(dirname "$0")/..}
find "$root" -name '*.txt' -type f -exec wc -l {} +
