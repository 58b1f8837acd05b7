#!/usr/bin/env bash
# The browser test: the status window page in Debian's Chromium, driven through chromedriver and
# Selenium (packages chromium, chromium-driver, python3-selenium; nothing is fetched at test time),
# against the service, `quellor -debug`, over a fresh installation tree.
# Usage: tests/browser/run.sh [BUILD_DIR]   (default: build)
# QUELLOR_SCREENSHOT=FILE also saves a screenshot of the page (docs/window.png is made this way).
# A missing browser, driver or Selenium is a failure, never a skip.
set -euo pipefail
build="$(cd "${1:-build}" && pwd)"
if [ -n "${QUELLOR_SCREENSHOT:-}" ]; then
  QUELLOR_SCREENSHOT="$(cd "$(dirname "$QUELLOR_SCREENSHOT")" && pwd)/$(basename "$QUELLOR_SCREENSHOT")"
  export QUELLOR_SCREENSHOT
fi
# Debian's interpreter, which sees python3-selenium, whatever python3 comes first on PATH.
python=/usr/bin/python3
missing=""
[ -x /usr/bin/chromium ] || missing+=" chromium"
[ -x /usr/bin/chromedriver ] || missing+=" chromium-driver"
{ [ -x "$python" ] && "$python" -c "import selenium" 2>/dev/null; } || missing+=" python3-selenium"
if [ -n "$missing" ]; then
  echo "browser test cannot run: missing Debian packages:$missing (scripts/setup.sh installs them)" >&2
  exit 1
fi
exec "$python" "$(dirname "$0")/window_test.py" "$build/quellor" -debug
