# atftpd
atftpd --daemon --no-fork --logfile - --user nobody.nogroup --port 69 {files}
