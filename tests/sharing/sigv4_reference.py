#!/usr/bin/python3
"""Signs an S3 PUT with botocore, as an independent check of Vantalo's signature.

argv: url access_key secret region amz_date(YYYYMMDDTHHMMSSZ) data_file
Prints the Authorization header botocore computes for the same request."""
import datetime
import sys

import botocore.auth
from botocore.awsrequest import AWSRequest
from botocore.credentials import Credentials

url, access_key, secret, region, amz_date, data_file = sys.argv[1:7]
with open(data_file, "rb") as f:
    data = f.read()

fixed = datetime.datetime.strptime(amz_date, "%Y%m%dT%H%M%SZ")


class FixedClock(datetime.datetime):
    @classmethod
    def utcnow(cls):
        return fixed


botocore.auth.datetime.datetime = FixedClock
request = AWSRequest(method="PUT", url=url, data=data, headers={"Content-Type": "image/gif"})
request.context["payload_signing_enabled"] = True
botocore.auth.S3SigV4Auth(Credentials(access_key, secret), "s3", region).add_auth(request)
print(request.headers["Authorization"])
