# What a script relies on: one JSON document on standard output (the serial
# log in a file), exit statuses as Linux maps the firmware's ERST status,
# record identifiers in hexadecimal with or without 0x, the print level
# (errors only: the serial log keeps its ERROR lines), and one line on
# standard error for a bad argument or a failure.
--version
erst write --generate --id 100000001 --json
! erst read 0x99 --json
! erst list -q
erst read 0000000100000001 -q
! erst read 99 --print-level 0x80000000
erst count --print-level=0x80000000
! erst read 1x
! boot --print-level 0x100000000
! decode flash missing.img
! decode flash vornsim-serial.log
