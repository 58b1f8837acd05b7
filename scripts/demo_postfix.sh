#!/usr/bin/env bash
# The cycle through real SMTP: a private Postfix (its own config and queue folders in a temp
# folder, 127.0.0.1 on free ports) set up with `quellorctl postfix install`, the outside world
# played by smtp-sink. Mail from a friend, from a stranger who replies, and from a forged sender
# whose request our own Postfix bounces; alice's maildir at the end.
# Needs root and Debian's postfix and swaks packages; otherwise it says so and skips.
set -euo pipefail
cd "$(dirname "$0")/.."
REPO="$(pwd)"
BIN="${QUELLOR_BUILD:-$REPO/build}"

say() { printf '\n\033[1m== %s\033[0m\n' "$*"; }
note() { printf '   %s\n' "$*"; }
if [ "$(id -u)" -ne 0 ] || ! command -v postfix >/dev/null || ! command -v swaks >/dev/null; then
  say "SKIPPED: the SMTP part needs root and the postfix and swaks packages (scripts/setup.sh)"
  exit 0
fi

free_port() { python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1",0)); print(s.getsockname()[1])'; }
P="$(mktemp -d /tmp/quellor-demo-postfix-XXXXXX)"
chmod 755 "$P"
mkdir -p "$P"/{etc,queue,data,mail,sink,units,root}
chown postfix "$P/data"
chown nobody "$P/mail" "$P/sink"
SMTP=$(free_port)
SINK=$(free_port)
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
virtual_mailbox_maps = inline:{ alice@example.org=alice/ }
virtual_uid_maps = static:65534
virtual_gid_maps = static:65534
relayhost = [127.0.0.1]:$SINK
maillog_file = $P/maillog
maillog_file_prefixes = $P
CF
PC="postconf -c $P/etc"
$PC -MX smtp/inet
$PC -M "127.0.0.1:$SMTP/inet=127.0.0.1:$SMTP inet n - n - - smtpd"
$PC -M "postlog/unix-dgram=postlog unix-dgram n - n - 1 postlogd"
postfix -c "$P/etc" start 2>/dev/null
smtp-sink -u nobody -d "$P/sink/%H%M%S." "127.0.0.1:$SINK" 10 &
SINK_PID=$!
DREGGER_PID=""
cleanup() {
  [ -n "$DREGGER_PID" ] && kill "$DREGGER_PID" 2>/dev/null
  kill "$SINK_PID" 2>/dev/null
  postfix -c "$P/etc" stop 2>/dev/null || true
}
trap cleanup EXIT

say "A private Postfix on 127.0.0.1:$SMTP; the outside world is smtp-sink on :$SINK"
note "\$ quellorctl postfix install --config-dir $P/etc --user nobody"
"$BIN/quellorctl" postfix install --config-dir "$P/etc" --user nobody | sed 's/^/   | /'
printf 'MODE=QUELLOR\r\n' >"$P/root/Users/alice@example.org.CONF"
printf 'friend@partner.test\r\n' >"$P/root/Users/alice@example.org.WLT"
"$BIN/quellor-dregger" --config-dir "$P/etc" --null-sender MAILER-DAEMON@mx.example.org \
  --hostname mx.example.org 2>"$P/dregger.log" &
DREGGER_PID=$!

smtp() { swaks --silent 2 --server "127.0.0.1:$SMTP" --from "$1" --to alice@example.org \
  --h-Subject "$2" --body "$3" >/dev/null && note "SMTP: $1 -> alice@example.org \"$2\""; }
pass_until() { # pass_until CONDITION: passes until the shell condition holds (60 s at most)
  for _ in $(seq 1 300); do
    "$BIN/quellorctl" pass --all --no-pause >/dev/null
    if eval "$1"; then return 0; fi
    sleep 0.2
  done
  note "(gave up waiting for: $1)"
}
held() { find "$P/root/WAIT" -name '*.EML' 2>/dev/null | wc -l; }
inbox() { find "$P/mail/alice/new" -type f 2>/dev/null | wc -l; }
requests() { find "$P/sink" -type f | wc -l; }

say "A friend writes: delivered at once"
smtp friend@partner.test "Lunch?" "See you at noon."
pass_until '[ "$(inbox)" -ge 1 ]'
say "A stranger writes: held, and a validation request goes out"
smtp stranger@unknown.test "Hello Alice" "We met at the fair."
pass_until '[ "$(requests)" -ge 1 ]'
REQ="$(ls "$P"/sink/* | head -n 1)"
SUBJECT="$(sed -n 's/^Subject: //p' "$REQ" | head -n 1)"
note "the outside world received: Subject: $SUBJECT"
say "The stranger replies: the held mail is released, the sender white-listed"
smtp stranger@unknown.test "Re: $SUBJECT" "Yes, it was me."
pass_until '[ "$(inbox)" -ge 2 ]'
say "A forged local sender: our Postfix bounces the request, the bounce purges the held mail"
smtp ghost@example.org "Cheap pills" "Buy now."
pass_until '[ "$(held)" -ge 1 ]'
pass_until '[ "$(held)" -eq 0 ]'
note "held messages left: $(held); requests sent out: $(requests)"
say "alice's maildir"
for f in "$P"/mail/alice/new/*; do
  printf -- '--- %s\n' "${f#"$P"/}"
  grep -E '^(From|Subject|Spam-Quellor):' "$f" | sed 's/^/   /'
done
say "Postfix's queue: $(postqueue -c "$P/etc" -p | tail -n 1)"
