// Stand-in for the platform's FSKit framework, written from its public documentation: the part of the interface that
// hosts/macos uses, with the platform's names, signatures and values. The real framework takes its place on a Mac.
#pragma once

#import <FSKit/FSContainer.h>
#import <FSKit/FSEntityIdentifier.h>
#import <FSKit/FSFileName.h>
#import <FSKit/FSItem.h>
#import <FSKit/FSKitDefines.h>
#import <FSKit/FSResource.h>
#import <FSKit/FSTaskOptions.h>
#import <FSKit/FSUnaryFileSystem.h>
#import <FSKit/FSVolume.h>
#import <FSKit/FSVolumeTypes.h>
