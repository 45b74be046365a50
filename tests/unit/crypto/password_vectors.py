#!/usr/bin/env python3
"""Computes the pinned vectors of the password key derivation, independently of the library
(Python's hashlib and hmac), for password_derivation_test.cc.

Scheme 1: master = PBKDF2-HMAC-SHA-256(UTF-8(NFC(password)), UTF-8(salt) + iv, c, 32),
key = HMAC-SHA-256(master, "opcvk key v1"), verifier = HMAC-SHA-256(master,
"opcvk password verifier v1"), hash = 01 || c (4 bytes, big-endian) || verifier.

    python3 tests/unit/crypto/password_vectors.py
"""

import hashlib
import hmac
import unicodedata

PASSWORD = "P\u00e4ssw\u00f6rd \U0001F511"  # NFC; the test also feeds its NFD form
SALT = "00112233445566778899aabbccddeeff"
IV = bytes(range(16))


def derive(password, salt, iv, work_factor):
    p = unicodedata.normalize("NFC", password).encode("utf-8")
    s = salt.encode("utf-8") + iv
    master = hashlib.pbkdf2_hmac("sha256", p, s, work_factor, 32)
    key = hmac.new(master, b"opcvk key v1", hashlib.sha256).digest()
    verifier = hmac.new(master, b"opcvk password verifier v1", hashlib.sha256).digest()
    return key, bytes([1]) + work_factor.to_bytes(4, "big") + verifier


for work_factor in (100000, 1000):
    key, stored = derive(PASSWORD, SALT, IV, work_factor)
    print(f"work factor {work_factor}")
    print(f"  key  {key.hex()}")
    print(f"  hash {stored.hex()}")
