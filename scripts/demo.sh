#!/usr/bin/env bash
# The demonstration: installs what Quellor needs, builds it, creates a fresh installation tree
# in ./demo/ and walks through the whole challenge-response cycle with quellorctl:
#   1. mail from known, unknown and unconfigured-recipient senders is routed;
#   2. the unknown sender replies to the validation request: the held mail is released and the
#      sender white-listed;
#   3. a postmaster bounces another validation request: the held mail is purged;
#   4. the administrator reviews the held mail and releases a message by hand, with the opt-in
#      filter that sends no validation requests to robots (mailing lists, auto-responders).
# Every step prints where the messages went. Re-running starts again from a fresh ./demo/.
set -euo pipefail
cd "$(dirname "$0")/.."
REPO="$(pwd)"

export QUELLOR_ROOT="$REPO/demo"
# QUELLORCTL names an already built quellorctl: then nothing is installed or built.
CTL="${QUELLORCTL:-$REPO/build/quellorctl}"
DOMAIN="example.org"
PROTECTED="alice@$DOMAIN"    # protection mode: unknown senders are challenged
UNPROTECTED="bob@$DOMAIN"    # no configuration: mail is delivered as it comes
FRIEND="friend@partner.test" # on alice's white list
STRANGER="stranger@unknown.test"
SPAMMER="spammer@forged.test"
POSTMASTER="MAILER-DAEMON@mx.forged.test"
COLLEAGUE="colleague@elsewhere.test"
NEWSLETTER="news@lists.partner.test"

say() { printf '\n\033[1m== %s\033[0m\n' "$*"; }
note() { printf '   %s\n' "$*"; }
# Shows a spool text file as it is, without its CR line ends.
show() {
  printf -- '--- %s\n' "${1#"$QUELLOR_ROOT"/}"
  tr -d '\r' <"$1"
}
# The files of the spool folders, one line each.
show_tree() {
  (cd "$QUELLOR_ROOT" && find IN LOCAL OUT WAIT Users -type f | LC_ALL=C sort | sed 's/^/   /')
}

# Message stems begin with the date and time, like the names the mail server gives them.
SEQ=100
# drop SENDER RECIPIENT SUBJECT BODY [HEADER]: writes one pair into IN/, message file first.
drop() {
  SEQ=$((SEQ + 1))
  local stem extra=""
  stem="$(date +%Y%m%d%H%M%S)$SEQ"
  [ -z "${5:-}" ] || extra="$5"$'\r\n'
  printf 'From: <%s>\r\nTo: <%s>\r\nSubject: %s\r\nDate: %s\r\nMessage-ID: <%s@demo>\r\n%s\r\n%s\r\n' \
    "$1" "$2" "$3" "$(LC_ALL=C date -R)" "$stem" "$extra" "$4" >"$QUELLOR_ROOT/IN/$stem.EML"
  printf '%s\r\n%s\r\n' "$1" "$2" >"$QUELLOR_ROOT/IN/$stem.WAI"
  note "IN/$stem  $1 -> $2  \"$3\""
}
run_pass() {
  note "\$ quellorctl pass --all --no-pause"
  "$CTL" pass --all --no-pause | tr -d '\r' | sed 's/^/   | /'
}
activity_log() { ls "$QUELLOR_ROOT"/LOG/*.log 2>/dev/null | grep -v '/system\.log$' | head -n 1; }
# The validation request in OUT/ that was sent to an address.
request_to() {
  local wai
  for wai in "$QUELLOR_ROOT"/OUT/*.WAI; do
    if [ "$(sed -n 2p "$wai" | tr -d '\r')" = "$1" ]; then
      printf '%s' "${wai%.WAI}.EML"
      return
    fi
  done
}
subject_of() { grep -m1 '^Subject: ' "$1" | tr -d '\r' | sed 's/^Subject: //'; }

step_setup_and_build() {
  [ -z "${QUELLORCTL:-}" ] || return 0
  say "Installing packages and building"
  bash scripts/setup.sh
  bash scripts/build.sh build
}

step_fresh_tree() {
  say "A fresh installation tree in $QUELLOR_ROOT"
  rm -rf "$QUELLOR_ROOT"
  "$CTL" init | sed 's/^/   /'
  # The local domain, the postmaster whose bounces purge held mail, the two users.
  printf '%s\r\n' "$DOMAIN" >"$QUELLOR_ROOT/DOMAIN.LST"
  sed -i "s/^POSTMASTERS=.*/POSTMASTERS=$POSTMASTER\r/" "$QUELLOR_ROOT/quellor.ini"
  printf 'MODE=QUELLOR\r\n' >"$QUELLOR_ROOT/Users/$PROTECTED.CONF"
  printf '%s\r\n' "$FRIEND" >"$QUELLOR_ROOT/Users/$PROTECTED.WLT"
  note "DOMAIN.LST: $DOMAIN;  POSTMASTERS=$POSTMASTER"
  note "$PROTECTED: MODE=QUELLOR, white list: $FRIEND"
  note "$UNPROTECTED: no configuration file (mail is delivered as it comes)"
}

step_first_mail() {
  say "Incoming mail"
  drop "$FRIEND" "$PROTECTED" "Lunch on Friday" "See you at noon."
  drop "$STRANGER" "$PROTECTED" "Question about your offer" "Is the offer still open?"
  drop "$SPAMMER" "$PROTECTED" "You have won" "Claim your prize now."
  drop "$STRANGER" "$UNPROTECTED" "Hello Bob" "A note for Bob."
  run_pass
  say "Where each message went"
  show_tree
  note "LOCAL/: the white-listed message to $PROTECTED and the message to $UNPROTECTED"
  note "WAIT/$PROTECTED/: the two messages from unknown senders, held"
  note "OUT/: one validation request to each unknown sender"
  say "Activity log"
  show "$(activity_log)"
  say "The validation request sent to $STRANGER"
  show "$(request_to "$STRANGER")"
}

step_reply() {
  say "$STRANGER replies to the request (the subject carries the request's identifier)"
  local subject
  subject="$(subject_of "$(request_to "$STRANGER")")"
  drop "$STRANGER" "$PROTECTED" "Re: $subject" "Yes, it was me."
  run_pass
  say "Released to LOCAL/, sender white-listed"
  show_tree
  local released
  released="$(grep -l 'New in white list' "$QUELLOR_ROOT"/LOCAL/*.EML | head -n 1)"
  show "$released"
  show "$QUELLOR_ROOT/Users/$PROTECTED.WLT"
  note "From now on mail from $STRANGER to $PROTECTED is delivered directly."
}

step_bounce() {
  say "The request to $SPAMMER bounces: the postmaster's report names it in its subject"
  local subject
  subject="$(subject_of "$(request_to "$SPAMMER")")"
  drop "$POSTMASTER" "$PROTECTED" "Undeliverable: $subject" \
    "$(printf 'This is the mail system at host mx.forged.test.\r\n\r\n<%s>: user unknown\r\n\r\n--- The original message ---\r\nTo: %s\r\nSubject: %s' \
      "$SPAMMER" "$SPAMMER" "$subject")"
  run_pass
  say "The held message from $SPAMMER is purged"
  show_tree
  say "Activity log"
  show "$(activity_log)"
}

step_held_by_hand() {
  say "Held mail reviewed by hand, and no requests to robots"
  sed -i 's/^CHALLENGE_FILTER=.*/CHALLENGE_FILTER=ON\r/' "$QUELLOR_ROOT/quellor.ini"
  note "quellor.ini: CHALLENGE_FILTER=ON (mailing lists, auto-responders and bounces get no request)"
  drop "$COLLEAGUE" "$PROTECTED" "Minutes of the meeting" "The minutes are attached."
  drop "$NEWSLETTER" "$PROTECTED" "Partner news" "This week at Partner." \
    "List-Id: Partner news <news.lists.partner.test>"
  run_pass
  note "Both are held; only $COLLEAGUE gets a request. The activity log's last lines:"
  tail -n 3 "$(activity_log)" | tr -d '\r' | sed 's/^/   | /'
  note "\$ quellorctl held"
  "$CTL" held | sed 's/^/   | /'
  local id
  id="$("$CTL" held "$PROTECTED" | awk -v s="$NEWSLETTER" '$6 == s { print $4; exit }')"
  note "\$ quellorctl release $PROTECTED $id   (alice wants the newsletter after all)"
  "$CTL" release "$PROTECTED" "$id" | sed 's/^/   | /'
  show_tree
  show "$QUELLOR_ROOT/Users/$PROTECTED.WLT"
  note "release and drop wait for a running pass (the tree's lock), so they are safe beside the service."
}

# The service itself: quellor -debug on the demo tree, with its window page, and mail dropped
# into IN/ while it runs. The program sits beside quellorctl.
SERVICE="$(dirname "$CTL")/quellor"
STATUS_PORT="${QUELLOR_STATUS_PORT:-10051}"
WINDOW_PORT="${QUELLOR_WINDOW_PORT:-10052}"
# drop_live SENDER RECIPIENT SUBJECT BODY: as the mail server does it while the service runs:
# the envelope first, the message file last and whole (written aside, then renamed).
drop_live() {
  SEQ=$((SEQ + 1))
  local stem
  stem="$(date +%Y%m%d%H%M%S)$SEQ"
  printf '%s\r\n%s\r\n' "$1" "$2" >"$QUELLOR_ROOT/IN/$stem.WAI"
  printf 'From: <%s>\r\nTo: <%s>\r\nSubject: %s\r\nDate: %s\r\nMessage-ID: <%s@demo>\r\n\r\n%s\r\n' \
    "$1" "$2" "$3" "$(LC_ALL=C date -R)" "$stem" "$4" >"$QUELLOR_ROOT/IN/$stem.part"
  mv "$QUELLOR_ROOT/IN/$stem.part" "$QUELLOR_ROOT/IN/$stem.EML"
  note "IN/$stem  $1 -> $2  \"$3\""
}
# GET / of the window page; prints the page's title.
page_title() {
  exec 3<>"/dev/tcp/127.0.0.1/$WINDOW_PORT" || return 0
  printf 'GET / HTTP/1.0\r\nHost: 127.0.0.1:%s\r\n\r\n' "$WINDOW_PORT" >&3
  grep -o '<title>[^<]*' <&3 | sed 's/<title>/   page title: /' || true
  exec 3<&-
}

step_service() {
  say "The service: quellor -debug on $QUELLOR_ROOT"
  # The window is served as a page only while DEBUG is not OFF.
  sed -i 's/^DEBUG=.*/DEBUG=ON\r/' "$QUELLOR_ROOT/quellor.ini"
  grep -q '^DEBUG=' "$QUELLOR_ROOT/quellor.ini" || printf 'DEBUG=ON\r\n' >>"$QUELLOR_ROOT/quellor.ini"
  local events pid status=0
  events="$(mktemp)"
  "$SERVICE" -debug 2>"$events" &
  pid=$!
  trap 'kill "$pid" 2>/dev/null || true' EXIT
  sleep 1
  note "\$ quellor -debug   (pid $pid; SIGTERM or Ctrl-C stops it)"
  note "Window page:  http://127.0.0.1:$WINDOW_PORT/"
  note "Status port:  $STATUS_PORT   (quellorctl status)"
  page_title

  say "Mail arrives while the service runs"
  drop_live "$STRANGER" "$PROTECTED" "Thanks" "Thanks for letting me through."
  drop_live "$FRIEND" "$UNPROTECTED" "Hi Bob" "Long time no see."
  drop_live "$SPAMMER" "$PROTECTED" "Last chance" "Your prize is waiting."
  local log lines waited=0
  log="$(activity_log)"
  lines="$(wc -l <"$log")"
  note "waiting for the next pass (the pass timer ticks every 10 seconds) ..."
  while [ -n "$(ls -A "$QUELLOR_ROOT/IN")" ] && [ "$waited" -lt 30 ]; do
    sleep 1
    waited=$((waited + 1))
  done
  note "IN/ is empty after ${waited}s. New activity-log lines:"
  tail -n +"$((lines + 1))" "$log" | tr -d '\r' | sed 's/^/   | /'
  say "Held mail beside the running service"
  note "\$ quellorctl held"
  "$CTL" held | sed 's/^/   | /'
  say "The running service's status reply"
  "$CTL" status 127.0.0.1 "$STATUS_PORT" | tr -d '\r' | sed 's/^/   | /' || true

  if [ -t 0 ] && [ -t 1 ]; then
    say "The service keeps running: open http://127.0.0.1:$WINDOW_PORT/ and press Enter to stop it"
    read -r _ || true
  fi
  # Pause and continue only write their entries: the timers go on.
  kill -USR1 "$pid"
  sleep 0.2
  kill -USR2 "$pid"
  sleep 0.2
  kill -TERM "$pid"
  wait "$pid" || status=$?
  trap - EXIT
  say "Stopped (exit status $status). Its event entries, as -debug prints them:"
  sed 's/^/   /' "$events"
  rm -f "$events"
}

step_setup_and_build
step_fresh_tree
step_first_mail
step_reply
step_bounce
step_held_by_hand
step_service
# The same cycle through real SMTP with a private Postfix (skipped, loudly, where it cannot run).
QUELLOR_BUILD="$(dirname "$CTL")" bash "$REPO/scripts/demo_postfix.sh"
say "Done. The installation tree stays in $QUELLOR_ROOT for a closer look."
