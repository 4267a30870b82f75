#!/usr/bin/env bash
# Writes the seed corpus of fuzz_ops into DIR: for every operation of the
# export list (include/rzimg_ops.h, in its order) a few inputs that select it,
# each with a different deterministic choice of bitmap and arguments.
# fuzz_ops reads the operation's index from the input's last bytes (the
# integers of libFuzzer's data provider come from the end).
set -euo pipefail
dir=${1:?usage: fuzz_seeds.sh DIR [VARIANTS]}
variants=${2:-4}
cd "$(dirname "$0")/.."
mkdir -p "$dir"
mapfile -t names < <(sed -n 's/^RZ_OP([0-9]*, *\([A-Za-z0-9_]*\),.*/\1/p' include/rzimg_ops.h)
count=${#names[@]}
for ((i = 0; i < count; ++i)); do
    for ((v = 0; v < variants; ++v)); do
        # 96 bytes of choices, then the index (one byte while there are at
        # most 256 operations; the high byte last beyond that).
        LC_ALL=C awk -v seed=$((i * 131 + v)) -v idx=$i -v count=$count 'BEGIN {
            srand(seed)
            for (k = 0; k < 96; ++k) printf "%c", int(rand() * 256)
            if (count > 256) printf "%c", idx % 256
            printf "%c", (count > 256 ? int(idx / 256) : idx)
        }' > "$dir/seed-${names[i]}-$v"
    done
done
echo "$((count * variants)) seeds for $count operations in $dir"
