#!/bin/sh
# Starts Debian's chromium for the dashboard test (playwright-core runs this
# script as the browser's executable) so that the test can always stop it:
#  - its PID goes to $XMLRPCS_BROWSER_PID_FILE before anything else runs.
#    playwright-core starts the browser in a session of its own, so this PID
#    leads the process group of the browser and of its helper processes;
#    exec keeps it.
#  - if the driver (node, $XMLRPCS_DRIVER_PID) is already gone once the PID
#    is written, the test may have looked for the file too early: no browser
#    is started then.
#  - the browser runs under timeout(1), which kills its whole process group
#    after $XMLRPCS_BROWSER_LIFETIME, even if the test itself was killed.
set -eu
pid_file=$XMLRPCS_BROWSER_PID_FILE
echo $$ >"$pid_file.new"
mv "$pid_file.new" "$pid_file"
parent=$(awk '$1 == "PPid:" { print $2 }' /proc/$$/status)
if [ "$parent" != "$XMLRPCS_DRIVER_PID" ]; then
  echo "browser-launcher: the driver is gone, not starting the browser" >&2
  exit 1
fi
exec timeout --signal=KILL "$XMLRPCS_BROWSER_LIFETIME" /usr/bin/chromium "$@"
