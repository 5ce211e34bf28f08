# The command line: the tables it writes and a boot on them (the
# placements go to standard error), then what it refuses: bad arguments exit
# 2 with one line naming the help to read, failures exit 1.
acpi dump tables
! boot --acpi tables --log serial.txt
! boot --x
! boot --cpu=16
! boot now
! launch
! boot --acpi missing
! boot --log no/such/dir/log.txt
! inject disk
! inject memory --severity high
! inject memory --fru A1
! inject --cper .
