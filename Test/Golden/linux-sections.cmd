# The OS names sections as Linux does, comparing section types as EFI
# GUIDs: the CXL component event section, whose type the firmware writes in
# the identifier's text order, is "unknown" to it.
inject cxl-component -q
