# isc-dhcp-relay: from the link of the switches to the server's
dhcrelay -4 -d --no-pid -i {device} -i far {server}
