# ladvd with everything switched on: LLDP, CDP, EDP, FDP and NDP
ladvd -f -v -t -L -C -E -F -N {port}
