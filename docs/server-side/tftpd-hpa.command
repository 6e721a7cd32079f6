# tftpd-hpa
in.tftpd --foreground --verbose --user nobody --address 0.0.0.0:69 --secure {files}
