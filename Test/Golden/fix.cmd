# Switches reach the module, and the error handlers, through --fix on any
# command: a read copies the record out only with erst-read on; with cxl-guid
# a handler's CXL section is one the OS knows. An unknown name is refused.
-q erst write --generate --id 5
-q erst read 5
-q erst read 5 --fix duplicate-id,erst-read
-q erst read 5 --fix=all
-q inject cxl-component --fix cxl-guid
! boot --fix erst-read,typo
