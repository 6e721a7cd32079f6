#include "zerotouch/sm/Problem.h"

namespace ZeroTouch {

char const* whatToDo(Problem problem) {
  switch (problem) {
    case Problem::none:
      return "";
    case Problem::noPortMatches:
      return "correct devices in [ports] of platform.toml, which matches no port (ip link shows them), and "
             "restart "
             "zerotouchd";
    case Problem::portsBridged:
      return "take a port out of its bridge, bond or VRF";
    case Problem::noPortTakesPart:
      return "see zerotouch ports for why each port takes no part";
    case Problem::noLink:
      return "plug in a cable, or see to the neighbour's port: zerotouch ports shows every link";
    case Problem::clientMissing:
      return "install a DHCP client (isc-dhcp-client or dhcpcd-base), or correct client in [dhcp] of "
             "platform.toml";
    case Problem::clientCrashed:
      return "find what the DHCP client says with journalctl -u zerotouchd, and install it anew if it is "
             "damaged";
    case Problem::noAnswer:
      return "see to the DHCP server: whether it runs, serves the network behind these ports (is a relay "
             "missing?), "
             "and has addresses left";
    case Problem::answerWithoutBootFile:
      return "let the DHCP server name a boot file for this switch: option 67 with DHCPv4, option 59 with "
             "DHCPv6";
    case Problem::bootFileBare:
      return "let the DHCP server send a whole URL, as in http://10.0.0.1/file, or name a TFTP server in "
             "option 66";
    case Problem::bootFileScheme:
      return "let the DHCP server send a URL that begins with http://, https://, ftp:// or tftp://";
    case Problem::bootFileUpperCase:
      return "write the URL's scheme in lower case on the DHCP server, as in http://";
    case Problem::bootFileNoHost:
      return "write :// and a host after the URL's scheme on the DHCP server, as in http://10.0.0.1/file";
    case Problem::serverNameWithUrl:
      return "remove option 66 from the DHCP answer: with it, the URL in option 67 is taken for the name of "
             "a file on "
             "that TFTP server";
    case Problem::addressNotActive:
      return "see whether somebody else uses the address, and whether the port keeps its link";
    case Problem::addressLost:
      return "see whether the port keeps its link, and who else changes its addresses";
    case Problem::schemeNotAllowed:
      return "let the DHCP server send a URL with an allowed scheme, or add its scheme to schemes in "
             "[authenticity] of platform.toml";
    case Problem::signatureRefused:
      return "put a file on the server that is signed for this switch (zerotouch verify says the same "
             "there), or correct "
             "signers in [authenticity] of platform.toml";
    case Problem::serverNotVerified:
      return "see to the certificate of the file server and its name in the URL, or to https_ca in "
             "[authenticity] of "
             "platform.toml";
    case Problem::urlMalformed:
      return "correct the URL on the DHCP server: a blank in it is written %20";
    case Problem::nameNotResolved:
      return "correct the server's name in the URL, or the name servers in the DHCP answer, or use an "
             "address";
    case Problem::connectionRefused:
      return "start the file server, or correct the port in the URL; a firewall may be what refuses";
    case Problem::serverUnreachable:
      return "see to the way to the file server: the router in the DHCP answer, and the server's network";
    case Problem::serverSilent:
      return "see whether the file server runs, and whether a firewall drops what the switch sends";
    case Problem::transferSlow:
      return "make the file smaller or the way to it faster: the download has to end in time";
    case Problem::tlsFailed:
      return "see to TLS on the file server: whether that port speaks it, and which versions";
    case Problem::fileNotFound:
      return "put the file on the server, or correct the URL in the DHCP answer";
    case Problem::accessRefused:
      return "let the file server give the file to this switch, or write user:password@ into the URL";
    case Problem::serverError:
      return "find the fault in the log of the file server";
    case Problem::redirected:
      return "let the DHCP answer name the URL that the file server leads to: redirects are not followed";
    case Problem::transferCut:
      return "find in the file server's log why it ended the transfer before the end of the file";
    case Problem::fileTooLarge:
      return "make the file smaller, or raise max_download_size in platform.toml";
    case Problem::noRoomForDownload:
      return "see whether /tmp of this switch is full, or cannot be written to";
    case Problem::downloadImpossible:
      return "install libcurl (libcurl4) on this switch, and see that it has memory left";
    case Problem::downloadOther:
      return "fetch the URL by hand, as with curl -v, and see what the file server says";
    case Problem::fileEmpty:
      return "write the configuration into the file on the server: it is empty";
    case Problem::webPage:
      return "put the configuration itself where the URL leads: the web page is now the startup "
             "configuration; replace "
             "or remove it, and reload";
    case Problem::flashFull:
      return "make room on the flash";
    case Problem::flashUnwritable:
      return "see whether the flash is mounted, and may be written to";
    case Problem::scriptFailed:
      return "correct the script: zerotouch events shows what it wrote";
    case Problem::interpreterMissing:
      return "correct the first line of the script: it has to name an interpreter that this switch has";
    case Problem::scriptLineEnds:
      return "save the script with the line ends of Unix, not of Windows: dos2unix does that";
    case Problem::scriptKilled:
      return "find what ended the script: a fault of its own, too little memory, or somebody else";
    case Problem::scriptSlow:
      return "see what the script waits for, or raise script_exec_timeout in platform.toml";
  }
  return "";
}

}  // namespace ZeroTouch
