# vornsim decode: a store of two records as written, then once APEI
# start-up has marked both obsolete; a record file printed as the serial log
# prints it, and a file that is not a record.
erst write --generate --flash f.img --log boot.txt
erst write --generate --flash f.img --log boot.txt
decode flash f.img
inject memory --flash f.img --log boot.txt
decode flash f.img
export-cper memory memory.cper
decode cper memory.cper
! decode cper missing.cper
! decode cper f.img
