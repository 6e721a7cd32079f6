"""All cases."""
from interop import dhcp4

CASES = dhcp4.cases()
