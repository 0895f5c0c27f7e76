#!/usr/bin/env bash
# Signs a Windows program in place: sign.sh FILE
#
# ORVEL_SIGN_CERTIFICATE  the certificate with its key, a PKCS#12 file
# ORVEL_SIGN_PASSWORD     a file that holds its password, if it has one
# ORVEL_SIGN_TIMESTAMP    the address of a time-stamping service; without one the signature ends with the
#                         certificate
set -euo pipefail

options=(-pkcs12 "$ORVEL_SIGN_CERTIFICATE" -h sha256 -n "Orvel Storage")
[[ ! ${ORVEL_SIGN_PASSWORD:-} ]] || options+=(-readpass "$ORVEL_SIGN_PASSWORD")
[[ ! ${ORVEL_SIGN_TIMESTAMP:-} ]] || options+=(-ts "$ORVEL_SIGN_TIMESTAMP")
osslsigncode sign "${options[@]}" -in "$1" -out "$1.signed" >&2
mv "$1.signed" "$1"
