#!/usr/bin/env bash
# Builds the Debian packages orvanta and orvanta-dev into build-package/:
#   ./scripts/package.sh && apt install ./build-package/orvanta_*.deb
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/install-deps.sh
cmake -S . -B build-package -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr \
  -DORVANTA_TESTS=OFF >/dev/null
cmake --build build-package -j "$(nproc)"
(cd build-package && cpack -G DEB >/dev/null)
ls build-package/*.deb
