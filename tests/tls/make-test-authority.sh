#!/usr/bin/env bash
# Makes a test certificate authority and a server certificate for localhost and 127.0.0.1 signed by
# it, and an NSS database that trusts the authority, all under <outdir>:
#   ca.pem ca.key        the authority
#   server.pem server.key  the server (DNS:localhost, IP:127.0.0.1, serverAuth)
#   home/.pki/nssdb      the user certificate store Qt WebEngine (Chromium) reads on Linux
# A process run with HOME=<outdir>/home trusts the server's certificate like any other, without
# ignoring certificate errors. Running it again keeps what is already there.
set -euo pipefail

if [ $# -ne 1 ]; then
    echo "usage: $0 <outdir>" >&2
    exit 2
fi
out=$1
mkdir -p "$out"
cd "$out"

# Written into a temporary file first so that an interrupted run never leaves half a set behind.
if [ ! -s ca.pem ] || [ ! -s ca.key ] || ! openssl x509 -checkend 86400 -noout -in ca.pem >/dev/null; then
    openssl req -x509 -newkey rsa:2048 -nodes -sha256 -days 3650 \
        -subj "/CN=Vistrel Test Authority" \
        -addext "basicConstraints=critical,CA:TRUE" \
        -addext "keyUsage=critical,keyCertSign,cRLSign" \
        -keyout ca.key.tmp -out ca.pem.tmp 2>/dev/null
    mv ca.key.tmp ca.key
    mv ca.pem.tmp ca.pem
    rm -f server.pem server.key
    rm -rf home
fi

# A kept certificate that expires within a day is made again.
if [ ! -s server.pem ] || [ ! -s server.key ] ||
    ! openssl x509 -checkend 86400 -noout -in server.pem >/dev/null; then
    openssl req -newkey rsa:2048 -nodes -sha256 -subj "/CN=localhost" \
        -keyout server.key.tmp -out server.csr 2>/dev/null
    cat >server.ext <<'EOF'
basicConstraints=CA:FALSE
keyUsage=critical,digitalSignature,keyEncipherment
extendedKeyUsage=serverAuth
subjectAltName=DNS:localhost,IP:127.0.0.1
EOF
    # Chromium refuses server certificates valid for more than 398 days.
    openssl x509 -req -in server.csr -CA ca.pem -CAkey ca.key -CAcreateserial -sha256 -days 397 \
        -extfile server.ext -out server.pem.tmp 2>/dev/null
    rm -f server.csr server.ext ca.srl
    mv server.key.tmp server.key
    mv server.pem.tmp server.pem
fi

db=home/.pki/nssdb
if ! certutil -L -d "sql:$db" -n vistrel-test-ca >/dev/null 2>&1; then
    rm -rf "$db"
    mkdir -p "$db"
    certutil -N --empty-password -d "sql:$db"
    certutil -A -n vistrel-test-ca -t "C,," -i ca.pem -d "sql:$db"
fi
