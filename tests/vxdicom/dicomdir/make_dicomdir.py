#!/usr/bin/python3
"""DICOMDIRs written and read by pydicom (a tool other than DCMTK and ours).

    make_dicomdir.py OUT [--id ID]...   one PATIENT record, then one IMAGE record
                                        per ID, whose Referenced File ID holds ID
                                        byte for byte (pydicom pads an odd length
                                        with a blank)
    make_dicomdir.py --list FILE...     per record with a Referenced File ID, its
                                        components joined with a backslash
    make_dicomdir.py --folder           the folder of pydicom's test DICOMDIRs
"""
import argparse
import os

import pydicom
from pydicom.dataset import Dataset, FileDataset, FileMetaDataset
from pydicom.sequence import Sequence
from pydicom.uid import ExplicitVRLittleEndian, generate_uid


def record(kind):
    r = Dataset()
    r.OffsetOfTheNextDirectoryRecord = 0
    r.RecordInUseFlag = 0xFFFF
    r.OffsetOfReferencedLowerLevelDirectoryEntity = 0
    r.DirectoryRecordType = kind
    return r


def write(out, ids):
    meta = FileMetaDataset()
    meta.MediaStorageSOPClassUID = "1.2.840.10008.1.3.10"
    meta.MediaStorageSOPInstanceUID = generate_uid()
    meta.TransferSyntaxUID = ExplicitVRLittleEndian
    ds = FileDataset(out, {}, file_meta=meta, preamble=b"\0" * 128)
    ds.FileSetID = "VXTEST"
    ds.FileSetConsistencyFlag = 0
    patient = record("PATIENT")
    patient.PatientName = "Test^Patient"
    records = [patient]
    for ident in ids:
        records.append(record("IMAGE"))
        records[-1].add_new(0x00041500, "CS", ident)  # one string keeps the bytes
    ds.DirectoryRecordSequence = Sequence(records)
    ds.is_little_endian, ds.is_implicit_VR = True, False
    ds.save_as(out, write_like_original=False)


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("out", nargs="?")
    ap.add_argument("--id", action="append", default=[])
    ap.add_argument("--list", nargs="+")
    ap.add_argument("--folder", action="store_true")
    args = ap.parse_args()
    if args.folder:
        print(os.path.join(os.path.dirname(pydicom.__file__), "data/test_files/dicomdirtests"))
    for path in args.list or []:
        for r in pydicom.dcmread(path).DirectoryRecordSequence:
            if "ReferencedFileID" in r:
                value = r.ReferencedFileID
                print("\\".join([value] if isinstance(value, str) else list(value)))
    if args.out:
        write(args.out, args.id)


if __name__ == "__main__":
    main()
