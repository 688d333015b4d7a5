#!/usr/bin/env bash
# Builds qv_hivectl if needed and runs one command line on the in-memory
# registry: values of every type are set, shown, read, copied, renamed and
# removed in one run.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
scripts/build.sh build >/dev/null
set -x
build/qv_hivectl --Backend memory: --Root Demo --Verbose \
  set Conf "Debug Level" i32 4 \
  set Conf Serial i64 0x123456789 \
  set Conf Title str "Weekly call" \
  set Conf Raw bin "plain bytes" \
  set Conf Cert b64 SGVsbG8sIHdvcmxkIQ== \
  set Conf Magic b16 DeadBEEF \
  set 'Conf\Rooms\101' Name str "Board room" \
  show Conf \
  get Conf Cert get Conf "Debug Level" \
  copy Conf Backup \
  rename 'Backup\Rooms' 'Backup\Halls' \
  removev Conf Raw exists Conf Raw \
  show Backup show 'Backup\Halls\101' \
  remove Backup exists Backup Title \
  export Conf -
