#!/usr/bin/env python3
"""The crypto library against an independent implementation: python3-cryptography.

Usage: crypto_interop_test.py CRYPTO_PEER

AES-256-GCM with the 16-byte IVs that packages use (GCM's slow path, not the 96-bit one),
whole and in pieces, both ways: what the library encrypts the peer decrypts and what the
peer encrypts the library decrypts, byte for byte; a single flipped bit in the peer's
output is refused.  The same both ways for AES-256-CBC with PKCS#7 padding, and for
HMAC-SHA-256.  Exits 0 when all agree, 1 with the differences, 77 (skipped) only when
python3-cryptography is not installed for this interpreter.
"""

import hashlib
import hmac
import os
import random
import subprocess
import sys

SKIP = 77

try:
    from cryptography.hazmat.primitives import padding
    from cryptography.hazmat.primitives.ciphers import Cipher, algorithms, modes
    from cryptography.hazmat.primitives.ciphers.aead import AESGCM
except ImportError:
    print("SKIP: python3-cryptography is not installed")
    sys.exit(SKIP)


def ours(peer, *arguments, data):
    result = subprocess.run([peer, *arguments], input=data, capture_output=True, check=False)
    return result.returncode, result.stdout, result.stderr.decode(errors="replace")


def cbc_encrypt(key, iv, data):
    padder = padding.PKCS7(128).padder()
    padded = padder.update(data) + padder.finalize()
    encryptor = Cipher(algorithms.AES(key), modes.CBC(iv)).encryptor()
    return encryptor.update(padded) + encryptor.finalize()


def main():
    peer = sys.argv[1]
    rng = random.Random(20240611)
    failures = []
    sizes = [0, 1, 15, 16, 17, 255, 4096, 65536 + 17, 1024 * 1024 + 1]
    for size in sizes:
        key = bytes(rng.getrandbits(8) for _ in range(32))
        iv = bytes(rng.getrandbits(8) for _ in range(16))
        data = os.urandom(size)
        theirs = AESGCM(key).encrypt(iv, data, None)
        for piece in [None, 1 if size < 5000 else 4093, 16, 65536]:
            extra = [] if piece is None else [str(piece)]
            how = f"GCM size {size} piece {piece}"
            status, sealed, error = ours(peer, "gcm-encrypt", key.hex(), iv.hex(), *extra,
                                         data=data)
            if status != 0 or sealed != theirs:
                failures.append(f"{how}: our ciphertext differs from the peer's ({error})")
            status, opened, error = ours(peer, "gcm-decrypt", key.hex(), iv.hex(), *extra,
                                         data=theirs)
            if status != 0 or opened != data:
                failures.append(f"{how}: we do not open the peer's message ({error})")
        bit = rng.randrange(len(theirs) * 8)
        altered = bytearray(theirs)
        altered[bit // 8] ^= 1 << (bit % 8)
        status, opened, error = ours(peer, "gcm-decrypt", key.hex(), iv.hex(), data=bytes(altered))
        if status != 1 or opened:
            failures.append(f"GCM size {size}: bit {bit} flipped was not refused")

        cbc = cbc_encrypt(key, iv, data)
        status, sealed, error = ours(peer, "cbc-encrypt", key.hex(), iv.hex(), data=data)
        if status != 0 or sealed != cbc:
            failures.append(f"CBC size {size}: our ciphertext differs from the peer's ({error})")
        status, opened, error = ours(peer, "cbc-decrypt", key.hex(), iv.hex(), data=cbc)
        if status != 0 or opened != data:
            failures.append(f"CBC size {size}: we do not open the peer's message ({error})")

        status, digest, error = ours(peer, "hmac", key.hex(), data=data)
        if status != 0 or digest != hmac.new(key, data, hashlib.sha256).digest():
            failures.append(f"HMAC size {size}: digests differ ({error})")

    for failure in failures:
        print(failure)
    if failures:
        return 1
    print(f"crypto interop: {len(sizes)} sizes, GCM with 16-byte IVs whole and in pieces, CBC "
          "and HMAC agree with python3-cryptography both ways")
    return 0


if __name__ == "__main__":
    sys.exit(main())
