# The default scenario: its story on standard output, then its serial log,
# which it keeps in a file.
scenario
file vornsim-serial.log
