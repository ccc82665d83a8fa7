#!/usr/bin/python3
"""Writes a DICOMDIR with pydicom (a tool other than DCMTK, which makes the others).

    make_dicomdir.py OUT [--syntax explicit|implicit|big] [--flag N]
                         [--undefined-lengths] [--id ID]...
                         [--list FILE...]

Each --id adds one IMAGE directory record whose Referenced File ID (0004,1500)
holds ID exactly as given: backslashes separate the components, leading
blanks and NUL characters are kept, and pydicom pads an odd length with a
blank. The records come after one PATIENT record without a file ID. --flag
sets the File-set Consistency Flag (0004,1212) (default 0).

--list reads DICOMDIRs instead and prints, per file, one line per directory
record that holds a Referenced File ID: its components joined with a
backslash, as pydicom decodes them (the expected values of the tests).
"""
import argparse
import sys

from pydicom import dcmread
from pydicom.dataset import Dataset, FileDataset, FileMetaDataset
from pydicom.sequence import Sequence
from pydicom.uid import (ExplicitVRBigEndian, ExplicitVRLittleEndian, ImplicitVRLittleEndian,
                         generate_uid)

SYNTAX = {
    "explicit": (ExplicitVRLittleEndian, True, False),
    "implicit": (ImplicitVRLittleEndian, True, True),
    "big": (ExplicitVRBigEndian, False, False),
}


def record(kind, undefined):
    r = Dataset()
    r.OffsetOfTheNextDirectoryRecord = 0
    r.RecordInUseFlag = 0xFFFF
    r.OffsetOfReferencedLowerLevelDirectoryEntity = 0
    r.DirectoryRecordType = kind
    r.is_undefined_length_sequence_item = undefined
    return r


def write(args):
    uid, little, implicit = SYNTAX[args.syntax]
    meta = FileMetaDataset()
    meta.MediaStorageSOPClassUID = "1.2.840.10008.1.3.10"
    meta.MediaStorageSOPInstanceUID = generate_uid()
    meta.TransferSyntaxUID = uid
    ds = FileDataset(args.out, {}, file_meta=meta, preamble=b"\0" * 128)
    ds.FileSetID = "VXTEST"
    ds.FileSetConsistencyFlag = args.flag
    patient = record("PATIENT", args.undefined_lengths)
    patient.PatientName = "Test^Patient"
    patient.PatientID = "1"
    records = [patient]
    for ident in args.id or []:
        r = record("IMAGE", args.undefined_lengths)
        # One string keeps the value byte for byte (pydicom only pads it).
        r.add_new(0x00041500, "CS", ident)
        records.append(r)
    ds.DirectoryRecordSequence = Sequence(records)
    ds["DirectoryRecordSequence"].is_undefined_length = args.undefined_lengths
    ds.is_little_endian = little
    ds.is_implicit_VR = implicit
    ds.save_as(args.out, write_like_original=False)


def list_ids(paths):
    for path in paths:
        ds = dcmread(path)
        for r in ds.DirectoryRecordSequence:
            if "ReferencedFileID" in r:
                value = r.ReferencedFileID
                parts = [value] if isinstance(value, str) else list(value)
                print("\\".join(parts))


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("out", nargs="?")
    ap.add_argument("--syntax", choices=sorted(SYNTAX), default="explicit")
    ap.add_argument("--flag", type=int, default=0)
    ap.add_argument("--undefined-lengths", action="store_true")
    ap.add_argument("--id", action="append")
    ap.add_argument("--list", nargs="+")
    args = ap.parse_args()
    if args.list:
        list_ids(args.list)
    elif args.out:
        write(args)
    else:
        ap.error("OUT or --list is needed")
    return 0


if __name__ == "__main__":
    sys.exit(main())
