<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en">
<context>
    <name />
    <message id="KB">
        <source>KB</source>
        <translation>KB</translation>
    </message>
    <message id="MB">
        <source>MB</source>
        <translation>MB</translation>
    </message>
    <message id="GB">
        <source>GB</source>
        <translation>GB</translation>
    </message>
    <message id="AppName">
        <source>Salvora 3</source>
        <translation>Salvora 3</translation>
    </message>
    <message id="Today">
        <source>Today</source>
        <translation>Today</translation>
    </message>
    <message id="Yesterday">
        <source>Yesterday</source>
        <translation>Yesterday</translation>
    </message>
</context>
</TS>