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
    <message id="DayOfActivity">
        <source>%1 day of activity (kept %2 days)</source>
        <translation>%1 day of activity (kept %2 days)</translation>
    </message>
    <message id="DaysOfActivity">
        <source>%1 days of activity (kept %2 days)</source>
        <translation>%1 days of activity (kept %2 days)</translation>
    </message>
    <message id="file">
        <source>file</source>
        <translation>file</translation>
    </message>
    <message id="files">
        <source>files</source>
        <translation>files</translation>
    </message>
    <message id="ContentsOfCache">
        <source>Cache: %1</source>
        <translation>Cache: %1</translation>
    </message>
    <message id="CurrentUser">
        <source>%1 (current user)</source>
        <translation>%1 (current user)</translation>
    </message>
    <message id="Unmounted">
        <source>%1 (unmounted)</source>
        <translation>%1 (unmounted)</translation>
    </message>
</context>
</TS>