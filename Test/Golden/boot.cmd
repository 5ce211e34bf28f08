boot
