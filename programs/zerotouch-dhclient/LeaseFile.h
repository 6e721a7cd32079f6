// The file of a client's leases, which the client does not start without.
#pragma once

// Makes it if there is none; what is there already is left alone.
void makeLeaseFile(char const* path);

// Leaves nothing in it but the identifier by which servers know the client.
void forgetLeases(char const* path);
