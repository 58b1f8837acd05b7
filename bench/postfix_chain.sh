#!/usr/bin/env bash
# The whole chain through a private Postfix: N small messages (default 1,000) sent by SMTP to an
# unconfigured user, through quellor-receive, the pass (quellorctl pass --all --no-pause in a
# loop), quellor-dregger and sendmail into a maildir. Prints messages per second, latency
# percentiles (SMTP sent -> maildir file written) and the bridge's own cost per message:
# quellor-receive writing a pair, and quellor-dregger handing a pair to a sendmail that only
# reads it. Needs root and the postfix package. Second argument: the build folder.
set -euo pipefail
cd "$(dirname "$0")/.."
N="${1:-1000}"
BIN="$(cd "${2:-build}" && pwd)"
[ "$(id -u)" -eq 0 ] && command -v postfix >/dev/null || {
  echo "needs root and the postfix package"
  exit 1
}
free_port() { python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1",0)); print(s.getsockname()[1])'; }
P="$(mktemp -d /tmp/quellor-bench-postfix-XXXXXX)"
chmod 755 "$P"
mkdir -p "$P"/{etc,queue,data,mail,units,root}
chown postfix "$P/data"
chown nobody "$P/mail"
SMTP=$(free_port)
export QUELLOR_ROOT="$P/root/" QUELLOR_UNIT_DIR="$P/units"
cp /etc/postfix/master.cf "$P/etc/"
cat >"$P/etc/main.cf" <<CF
compatibility_level = 3.6
queue_directory = $P/queue
data_directory = $P/data
mail_owner = postfix
setgid_group = postdrop
myhostname = mx.example.org
mydestination = localhost
inet_interfaces = 127.0.0.1
inet_protocols = ipv4
mynetworks = 127.0.0.0/8
virtual_mailbox_domains = example.org
virtual_mailbox_base = $P/mail
virtual_mailbox_maps = inline:{ bob@example.org=bob/ }
virtual_uid_maps = static:65534
virtual_gid_maps = static:65534
maillog_file = $P/maillog
maillog_file_prefixes = $P
CF
postconf -c "$P/etc" -MX smtp/inet
postconf -c "$P/etc" -M "127.0.0.1:$SMTP/inet=127.0.0.1:$SMTP inet n - n - - smtpd"
postconf -c "$P/etc" -M "postlog/unix-dgram=postlog unix-dgram n - n - 1 postlogd"
postfix -c "$P/etc" start 2>/dev/null
"$BIN/quellorctl" postfix install --config-dir "$P/etc" --user nobody >/dev/null
"$BIN/quellor-dregger" --config-dir "$P/etc" --null-sender MAILER-DAEMON@mx.example.org \
  --hostname mx.example.org 2>"$P/dregger.log" &
DREGGER=$!
trap 'kill $DREGGER 2>/dev/null; postfix -c "$P/etc" stop 2>/dev/null; rm -rf "$P"' EXIT

START=$(date +%s.%N)
python3 - "$SMTP" "$N" <<'PY' &
import smtplib, sys, time
port, n = int(sys.argv[1]), int(sys.argv[2])
s = smtplib.SMTP("127.0.0.1", port)
for i in range(n):
    msg = "From: a@remote.test\r\nTo: bob@example.org\r\nSubject: bench %d\r\nX-Sent: %.6f\r\n\r\nHello.\r\n" % (i, time.time())
    s.sendmail("a@remote.test", ["bob@example.org"], msg)
s.quit()
PY
SENDER=$!
while [ "$(find "$P/mail/bob/new" -type f 2>/dev/null | wc -l)" -lt "$N" ]; do
  "$BIN/quellorctl" pass --all --no-pause >/dev/null
done
END=$(date +%s.%N)
wait $SENDER
python3 - "$P/mail/bob/new" "$START" "$END" "$N" <<'PY'
import os, sys
folder, start, end, n = sys.argv[1], float(sys.argv[2]), float(sys.argv[3]), int(sys.argv[4])
lat = []
for name in os.listdir(folder):
    path = os.path.join(folder, name)
    for line in open(path, errors="replace"):
        if line.startswith("X-Sent: "):
            lat.append(os.stat(path).st_mtime - float(line[8:]))
            break
lat.sort()
pct = lambda p: lat[min(len(lat) - 1, int(p * len(lat)))] * 1000
print("whole chain: %d messages in %.1f s = %.1f messages/s" % (n, end - start, n / (end - start)))
print("latency ms: p50 %.0f  p90 %.0f  p99 %.0f  max %.0f" % (pct(.5), pct(.9), pct(.99), lat[-1] * 1000))
PY

# The bridge alone: quellor-receive writing N pairs (process start included, as pipe(8) runs it).
R="$P/receive/"
mkdir -p "$R/IN"
MSG="$(printf 'From: a@remote.test\nSubject: x\n\nHello.\n')"
T0=$(date +%s%N)
for i in $(seq 1 "$N"); do
  printf '%s' "$MSG" | "$BIN/quellor-receive" --root "$R" -- a@remote.test bob@example.org
done
T1=$(date +%s%N)
echo "quellor-receive: $(((T1 - T0) / N / 1000)) us per message"
# quellor-dregger handing N LOCAL/ pairs to a sendmail that only reads the message.
D="$P/dregger/"
mkdir -p "$D/LOCAL" "$D/OUT"
printf '#!/bin/sh\ncat >/dev/null\n' >"$P/fake-sendmail"
chmod 755 "$P/fake-sendmail"
for i in $(seq 1 "$N"); do
  printf 'a@remote.test\r\nbob@example.org\r\n' >"$D/LOCAL/$i.WAI"
  printf 'Return-Path: <a@remote.test>\r\nSubject: x\r\n\r\nHello.\r\n' >"$D/LOCAL/$i.EML"
done
T0=$(date +%s%N)
QUELLOR_ROOT="$D" "$BIN/quellor-dregger" --once --sendmail "$P/fake-sendmail"
T1=$(date +%s%N)
echo "quellor-dregger: $(((T1 - T0) / N / 1000)) us per message (sendmail itself not counted beyond a shell that reads stdin)"
