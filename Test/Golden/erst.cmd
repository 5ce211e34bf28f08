# The OS stores, lists, reads and clears ERST records; then the platform's
# _OSC grants it APEI, which marks every stored record obsolete, so the next
# start-up defragments the store. Exit statuses follow Linux's errno: the
# list stops where pstore stops (-EIO: the read leaves no record in the
# buffer), and an unknown identifier is -ENOENT; their standard error
# follows.
erst write --generate
export-cper memory memory.cper
erst write memory.cper
! erst list
erst read 0x100000001
! erst read 99
erst clear 1
inject memory
reboot
erst count
