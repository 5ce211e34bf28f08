# A firmware engineer decodes a flash dump whose store holds live, cleared
# and obsolete records. The store is filled quietly (-q: the story on the
# terminal, the serial log in a file; one run also shows its standard error:
# the health line); the clear reaches the flash with --fix erst-clear. The
# decode gives one line a record, each OS record as a .cper file (one decoded
# again from its file), the volume drawn to scale, and the same store as
# JSON. Once the platform's _OSC has granted APEI the stored records are
# obsolete.
erst write --generate -q
erst write --generate -q
erst write --generate -q
! erst clear 2 -q --fix erst-clear
decode flash vornsim-flash.img --summary --extract records --svg volume.svg
file volume.svg
decode cper records/erst-0001-0000000000000002.cper
decode flash vornsim-flash.img --json
inject memory -q
decode flash vornsim-flash.img --summary
