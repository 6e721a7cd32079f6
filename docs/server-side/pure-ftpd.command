# pure-ftpd: anonymous only, to read only; it serves the home of the user ftp, /srv/ftp
pure-ftpd --anonymousonly --anonymouscantupload --chrooteveryone --dontresolve --pidfile {folder}/pid
