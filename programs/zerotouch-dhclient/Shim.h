// What both clients need: the file of the leases, the configuration, and DHCPv4 releases.
#pragma once

#include <span>
#include <string>
#include <vector>

// Makes the file of the client's leases, without which the client does not start. One that exists is left
// alone.
void makeLeaseFile(std::string const& path);

// Leaves nothing in the lease file but the identifier by which DHCPv6 servers know the client: `identifier`,
// or when that is empty, the one that is in the file.
void forgetLeases(std::string const& path, std::string const& identifier);

// The MAC address that the configuration sends as the client's identifier; empty when that is none.
std::string clientAddress(std::string const& configFile);

// The line of a lease file by which DHCPv6 servers know the switch in every boot: a DUID-LL (RFC 8415, 11.4)
// of the address that the configuration sends as the client's identifier; empty when that is no MAC address.
std::string identifierOf(std::string const& configFile);

// The configuration for a DHCPv4 query that passes over the servers whose answers named no boot file, on the
// devices where they gave them: they were the quickest, and another server may know more. Those of the last
// query are in the file "<leaseFile>.nameless", which the hook writes. As long as others without a boot file
// answer, their number grows; after a query without such an answer, all are heard again. Returns `configFile`
// when there is nobody to pass over, or a file of its own. What they leased is handed back.
std::string configFor(std::string const& configFile, std::string const& leaseFile,
                      std::span<std::string const> devices);

// Hands back the DHCPv4 leases of ports that do not have the leased address, because another port or family
// was chosen: the ISC client's own message leaves with that address only. One message each, from the port to
// its server (RFC 2131, 4.4.6), for which nobody waits; a server behind a relay gets it only by the routes of
// a port that has the address.
void releaseWithoutAddress(std::string const& leaseFile, std::string const& configFile);
// The same for all ports, with the leased address or without. Returns once the messages have left, within 1
// s.
void releaseAll(std::string const& leaseFile, std::string const& configFile);
// The same for one device, when its lease is of this server.
void releaseWithoutAddress(std::string const& leaseFile, std::string const& configFile,
                           std::string const& device, std::string const& server);

// The devices that have a lease in the file.
std::vector<std::string> devicesWithLease(std::string const& leaseFile);
// Those of them that are not among these.
std::vector<std::string> otherDevices(std::string const& leaseFile, std::vector<std::string> const& devices);

// Waits until no other client uses these leases any more, neither one that releases them, nor what it has
// started: two clients must not share the file, and the report of a release that comes late would remove the
// record of a new answer. A release has at most 3 s once it is told to stop, and its script 5 s; after 9 s
// there is a complaint, and the program goes on. With `keeps` this process and its children then keep others
// waiting until they have ended: they hold a lock.
void waitForRelease(std::string const& leaseFile, bool keeps);
