# lldpd with everything switched on: CDP, EDP, FDP and SONMP besides LLDP, and the details of LLDP-MED
lldpd -dd -l -cc -ee -ff -ss -M 4 -I {port} -C {port} -O {folder}/lldpd.conf -u /run/lldpd/socket
