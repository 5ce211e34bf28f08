# Switches reach the module through --fix on any command: a read copies the
# record out only with erst-read on; an unknown name is refused.
-q erst write --generate --id 5
-q erst read 5
-q erst read 5 --fix duplicate-id,erst-read
-q erst read 5 --fix=all
! boot --fix erst-read,typo
