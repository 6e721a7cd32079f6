"""All cases."""
from interop import dhcp4, dhcp6

CASES = [*dhcp4.cases(), *dhcp6.cases()]
