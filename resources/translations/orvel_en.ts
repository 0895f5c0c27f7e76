<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en" sourcelanguage="en">
<context>
    <name>DialogCld</name>
    <message numerus="yes">
        <source> files are uploading to the cloud</source>
        <translation type="unfinished">
            <numerusform></numerusform>
            <numerusform></numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source> files are downloading from the cloud</source>
        <translation type="unfinished">
            <numerusform></numerusform>
            <numerusform></numerusform>
        </translation>
    </message>
</context>
<context>
    <name>Guide</name>
    <message numerus="yes">
        <source>Step %n</source>
        <translation>
            <numerusform>Step %n</numerusform>
            <numerusform>Step %n</numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source>of %n</source>
        <translation>
            <numerusform>of %n</numerusform>
            <numerusform>of %n</numerusform>
        </translation>
    </message>
</context>
</TS>
