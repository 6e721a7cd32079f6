# What the tests of signed files run in a folder of theirs, with $ZEROTOUCH and $PROJECT.
set -e
authority() { "$PROJECT/lab/authority" . "$@"; }
signs() {  # NAME [-detached] [OPTIONS...]: signs boot by openssl
  local name=$1 whole=-nodetach
  shift
  [ "${1:-}" != -detached ] || { whole=; shift; }
  openssl cms -sign -binary $whole -outform DER -in boot -signer "$name.pem" -inkey "$name.key" -out signed "$@"
}
bytes() { printf "$(printf %s "$1" | sed 's/../\\x&/g')"; }
poke() { bytes "$2" | dd of=signed bs=1 seek="$1" conv=notrunc status=none; }
