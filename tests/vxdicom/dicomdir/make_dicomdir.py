#!/usr/bin/python3
"""DICOMDIRs by pydicom: OUT writes a PATIENT and an IMAGE record per --id (icon ID "NOTME");
--list prints each record's file path; --folder pydicom's test DICOMDIRs' folder."""
import argparse, os

import pydicom
from pydicom.dataset import Dataset, FileDataset, FileMetaDataset
from pydicom.sequence import Sequence
from pydicom.uid import generate_uid

SYNTAX = {"explicit": ("1.2.840.10008.1.2.1", True, False),
          "implicit": ("1.2.840.10008.1.2", True, True),
          "big": ("1.2.840.10008.1.2.2", False, False)}


def record(kind, undefined, ident=None):
    r = Dataset()
    r.OffsetOfTheNextDirectoryRecord, r.RecordInUseFlag = 0, 0xFFFF
    r.OffsetOfReferencedLowerLevelDirectoryEntity, r.DirectoryRecordType = 0, kind
    r.is_undefined_length_sequence_item = undefined
    if ident is not None:
        r.add_new(0x00041500, "CS", ident)  # one string keeps the bytes
        icon = Dataset()
        icon.add_new(0x00041500, "CS", "NOTME")
        icon.is_undefined_length_sequence_item = undefined
        r.IconImageSequence = Sequence([icon])
        r["IconImageSequence"].is_undefined_length = undefined
    return r


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("out", nargs="?")
    ap.add_argument("--syntax", choices=sorted(SYNTAX), default="explicit")
    for flag in ("--undefined-lengths", "--inconsistent", "--folder"):
        ap.add_argument(flag, action="store_true")
    ap.add_argument("--id", action="append", default=[])
    ap.add_argument("--list", nargs="+", default=[])
    args = ap.parse_args()
    if args.folder:
        print(os.path.join(os.path.dirname(pydicom.__file__), "data/test_files/dicomdirtests"))
    for path in args.list:
        for r in pydicom.dcmread(path).DirectoryRecordSequence:
            if "ReferencedFileID" in r:
                value = r.ReferencedFileID
                value = "/".join([value] if isinstance(value, str) else list(value)).strip(" ")
                print(os.path.join(os.path.dirname(path), value))
    if args.out:
        uid, little, implicit = SYNTAX[args.syntax]
        meta = FileMetaDataset()
        meta.MediaStorageSOPClassUID, meta.TransferSyntaxUID = "1.2.840.10008.1.3.10", uid
        meta.MediaStorageSOPInstanceUID = generate_uid()
        ds = FileDataset(args.out, {}, file_meta=meta, preamble=b"\0" * 128)
        ds.FileSetID, ds.FileSetConsistencyFlag = "VXTEST", int(args.inconsistent)
        ds.DirectoryRecordSequence = Sequence(
            [record("PATIENT", args.undefined_lengths)] +
            [record("IMAGE", args.undefined_lengths, i) for i in args.id])
        ds["DirectoryRecordSequence"].is_undefined_length = args.undefined_lengths
        ds.is_little_endian, ds.is_implicit_VR = little, implicit
        ds.save_as(args.out, write_like_original=False)


if __name__ == "__main__":
    main()
