# A record exported to a file comes back through the NMI when the handler on
# processor 6 reports it; its lines carry that processor's prefix.
export-cper pcie pcie.cper --severity fatal
inject --cper pcie.cper --cpu 6 --log serial.txt --flash flash.img
file serial.txt
