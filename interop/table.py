"""All cases."""
from interop import dhcp4, dhcp6, files, neighbours

CASES = [case for module in (dhcp4, dhcp6, files, neighbours) for case in module.cases()]
