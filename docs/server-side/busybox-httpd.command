# busybox httpd; scripts in its folder cgi-bin are run
busybox httpd -f -v -p 80 -h {folder}
