# The OS stores, lists, reads and clears ERST records; then it enables APEI,
# which marks every stored record obsolete, so the next start-up
# defragments the store.
erst write --generate
export-cper memory memory.cper
erst write memory.cper
erst list
erst read 0x100000001
erst read 0x99
erst clear 1
inject memory
reboot
erst count
